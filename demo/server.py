"""The words of the default demonstration through a speech server: the WebSocket plugin, a server on the loopback
interface, and behind it the offline recogniser."""

import contextlib
import subprocess

import words
from pbx import PbxError, free_port

PLUGIN = "plugin_websocket.so"

_port = free_port()


def profiles(options):
    """An engine for each list of words, all on one server."""
    return {name: {**keys, "url": f"ws://127.0.0.1:{_port}"} for name, keys in words.profiles(options).items()}


def run(pbx, options):
    with server(options.build):
        print(f"The server listens on 127.0.0.1:{_port}.")
        return words.run(pbx, options)


@contextlib.contextmanager
def server(build):
    """Runs the server for as long as the block lasts."""
    command = [f"{build}/bin/recognising_server", "--port", str(_port),
               "--plugin", f"{build}/lib/quillbrook/plugin_pocketsphinx.so"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        try:
            if not process.stdout.readline().startswith("port "):
                raise PbxError(f"the speech server does not start: {' '.join(command)}")
            yield
        finally:
            process.terminate()

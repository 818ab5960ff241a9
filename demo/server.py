"""The words of the default demonstration through a speech server: a plugin that talks to a server on the loopback
interface, and behind that the offline recogniser."""

import contextlib
import subprocess

import words
from pbx import PbxError, free_port


class ServerMode:
    """A mode of the demonstration: an engine for each list of words, all on one server. {port} in the URL is its."""

    def __init__(self, plugin, url):
        self.PLUGIN = plugin
        self._port = free_port()
        self._url = url.format(port=self._port)

    def profiles(self, options):
        return {name: {**keys, "url": self._url} for name, keys in words.profiles(options).items()}

    def run(self, pbx, options):
        with server(options.build, self._port):
            print(f"The server listens on 127.0.0.1:{self._port}.")
            return words.run(pbx, options)


websocket = ServerMode("plugin_websocket.so", "ws://127.0.0.1:{port}")
transcription = ServerMode("plugin_transcription.so", "http://127.0.0.1:{port}/v1/audio/transcriptions")


@contextlib.contextmanager
def server(build, port):
    """Runs the server for as long as the block lasts."""
    command = [f"{build}/bin/recognising_server", "--port", str(port),
               "--plugin", f"{build}/lib/quillbrook/plugin_pocketsphinx.so"]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
        try:
            if not process.stdout.readline().startswith("port "):
                raise PbxError(f"the speech server does not start: {' '.join(command)}")
            yield
        finally:
            process.terminate()

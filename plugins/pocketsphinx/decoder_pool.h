// Decoders that are ready for the next call, and the threads that make more of them.
//
// Making a decoder takes from 20 ms (hints) to 2 seconds (language model), and a loop must not stand still that long.
// So it orders one and looks in from time to time. What was ordered and is not wanted any more, because the caller
// has hung up, waits here for another call. Thread-safe. The threads end with the pool: unloading the plugin waits for
// a decoder in the making.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "decoder.h"

namespace quillbrook::pocketsphinx {

// What a recognition gets from the pool, and gives back.
struct Recogniser {
  std::unique_ptr<Decoder> decoder;
  std::shared_ptr<const Dictionary> dictionary;  // null with a language model, whose decoder has its own
};

class DecoderPool {
public:
  struct Order {
    ModelFiles files;
    // Guarded by the pool's lock.
    bool done = false;
    bool abandoned = false;
    Recogniser result;
    std::string error;
  };
  using Ticket = std::shared_ptr<Order>;

  DecoderPool() = default;
  ~DecoderPool();
  DecoderPool(const DecoderPool &) = delete;
  DecoderPool &operator=(const DecoderPool &) = delete;

  Ticket order(const ModelFiles &files);

  // Waits at most that long; true when the order is done: then take() gives it out.
  bool wait(const Ticket &ticket, std::chrono::milliseconds longest);

  // Once for a ticket that is done. Throws std::runtime_error with the reason when the decoder could not be made.
  Recogniser take(const Ticket &ticket);

  // For a ticket that will not be waited for any longer.
  void cancel(const Ticket &ticket);

  void give_back(Recogniser recogniser);

private:
  void work();
  void make(Order &order, std::unique_lock<std::mutex> &lock);
  std::shared_ptr<const Dictionary> dictionary_for(const std::string &path);
  Recogniser keep(Recogniser recogniser);  // returns the one that has to go for it, to be freed without the lock
  void reap();

  Library library_;  // outlives the decoders below
  std::mutex lock_;  // guards everything below, and Order as told there; innermost, no call goes out under it
  std::condition_variable changed_;
  std::deque<Ticket> waiting_;
  std::vector<Recogniser> idle_;
  struct Worker {
    std::thread thread;
    bool ended = false;
  };
  std::list<Worker> workers_;
  struct KnownDictionary {
    std::string path;
    std::shared_ptr<const Dictionary> dictionary;
  };
  std::vector<KnownDictionary> dictionaries_;
};

}  // namespace quillbrook::pocketsphinx

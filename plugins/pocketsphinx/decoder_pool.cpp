#include "decoder_pool.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

namespace quillbrook::pocketsphinx {
namespace {

constexpr size_t kMostWorkers = 2;  // decoders made at a time: more would only starve calls of the processor
// Decoders kept ready: 4 MB each for hints, 92 MB each with the language model.
constexpr std::ptrdiff_t kMostIdleSmall = 8;
constexpr std::ptrdiff_t kMostIdleLarge = 2;
constexpr size_t kMostDictionaries = 4;  // dictionaries kept: one for each model in use

}  // namespace

DecoderPool::~DecoderPool() {
  {
    std::lock_guard<std::mutex> guard(lock_);
    waiting_.clear();
  }
  for (Worker &worker : workers_) worker.thread.join();
}

// Joins workers that have nothing left to do but return.
void DecoderPool::reap() {
  for (auto worker = workers_.begin(); worker != workers_.end();) {
    if (worker->ended) {
      worker->thread.join();
      worker = workers_.erase(worker);
    } else {
      ++worker;
    }
  }
}

DecoderPool::Ticket DecoderPool::order(const ModelFiles &files) {
  auto ticket = std::make_shared<Order>();
  ticket->files = files;
  std::lock_guard<std::mutex> guard(lock_);
  auto ready = std::find_if(idle_.begin(), idle_.end(),
                            [&files](const Recogniser &idle) { return idle.decoder->files() == files; });
  if (ready != idle_.end()) {
    ticket->result = std::move(*ready);
    idle_.erase(ready);
    ticket->done = true;
    return ticket;
  }
  waiting_.push_back(ticket);
  reap();
  if (workers_.size() < kMostWorkers) {
    Worker &worker = workers_.emplace_back();
    try {
      worker.thread = std::thread([this, &worker] {
        work();
        std::lock_guard<std::mutex> last(lock_);
        worker.ended = true;
      });
    } catch (...) {
      workers_.pop_back();
      waiting_.pop_back();
      throw;
    }
  }
  return ticket;
}

void DecoderPool::work() {
  std::unique_lock<std::mutex> lock(lock_);
  while (!waiting_.empty()) {
    Ticket ticket = std::move(waiting_.front());
    waiting_.pop_front();
    make(*ticket, lock);
    ticket->done = true;
    changed_.notify_all();
    if (!ticket->abandoned || ticket->result.decoder == nullptr) continue;
    Recogniser surplus = keep(std::move(ticket->result));
    lock.unlock();
    surplus = {};
    lock.lock();
  }
}

void DecoderPool::make(Order &order, std::unique_lock<std::mutex> &lock) {
  lock.unlock();
  Recogniser made;
  std::string error;
  try {
    made.decoder = std::make_unique<Decoder>(order.files);
    if (order.files.language_model.empty()) made.dictionary = dictionary_for(order.files.dictionary);
  } catch (const std::exception &exception) {
    made = {};
    error = exception.what();
  }
  lock.lock();
  order.result = std::move(made);
  order.error = std::move(error);
}

std::shared_ptr<const Dictionary> DecoderPool::dictionary_for(const std::string &path) {
  auto known = [this, &path]() -> std::shared_ptr<const Dictionary> {
    for (const KnownDictionary &each : dictionaries_) {
      if (each.path == path) return each.dictionary;
    }
    return nullptr;
  };
  {
    std::lock_guard<std::mutex> guard(lock_);
    if (auto found = known()) return found;
  }
  auto made = std::make_shared<const Dictionary>(path);
  std::lock_guard<std::mutex> guard(lock_);
  if (auto found = known()) return found;
  if (dictionaries_.size() >= kMostDictionaries) dictionaries_.erase(dictionaries_.begin());
  dictionaries_.push_back({path, made});
  return made;
}

bool DecoderPool::wait(const Ticket &ticket, std::chrono::milliseconds longest) {
  std::unique_lock<std::mutex> lock(lock_);
  return changed_.wait_for(lock, longest, [&ticket] { return ticket->done; });
}

Recogniser DecoderPool::take(const Ticket &ticket) {
  std::lock_guard<std::mutex> guard(lock_);
  if (!ticket->error.empty()) throw std::runtime_error(ticket->error);
  return std::move(ticket->result);
}

void DecoderPool::cancel(const Ticket &ticket) {
  Recogniser surplus;  // freed after the lock is
  std::lock_guard<std::mutex> guard(lock_);
  ticket->abandoned = true;
  auto found = std::find(waiting_.begin(), waiting_.end(), ticket);
  if (found != waiting_.end()) waiting_.erase(found);
  if (ticket->done && ticket->result.decoder != nullptr) surplus = keep(std::move(ticket->result));
}

void DecoderPool::give_back(Recogniser recogniser) {
  if (recogniser.decoder == nullptr || !recogniser.decoder->is_reusable()) return;
  Recogniser surplus;  // freed after the lock is
  std::lock_guard<std::mutex> guard(lock_);
  surplus = keep(std::move(recogniser));
}

Recogniser DecoderPool::keep(Recogniser recogniser) {
  bool large = !recogniser.decoder->files().language_model.empty();
  auto is_alike = [large](const Recogniser &idle) { return large != idle.decoder->files().language_model.empty(); };
  Recogniser surplus;
  if (std::count_if(idle_.begin(), idle_.end(), is_alike) >= (large ? kMostIdleLarge : kMostIdleSmall)) {
    auto oldest = std::find_if(idle_.begin(), idle_.end(), is_alike);
    surplus = std::move(*oldest);
    idle_.erase(oldest);
  }
  idle_.push_back(std::move(recogniser));
  return surplus;
}

}  // namespace quillbrook::pocketsphinx

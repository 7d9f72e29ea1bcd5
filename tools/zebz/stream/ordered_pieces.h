// Processes the pieces of a stream on several threads and keeps their order.
#ifndef ZEBZ_STREAM_ORDERED_PIECES_H
#define ZEBZ_STREAM_ORDERED_PIECES_H

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace zebz {

// read(Piece&) -> bool     fills the next piece; false when there is none. Runs on the caller's
//                          thread, as write does, in the order of the stream.
// makeWorker()             called once for each of the threads, on the caller's; returns a function
//                          of Piece& that does the work on a piece.
// write(Piece&)            takes the result of a piece.
//
// Pieces are reused: twice as many exist as threads. An exception from any of the functions ends
// the work and is passed on.
template <typename Piece, typename Read, typename MakeWorker, typename Write>
class OrderedPieces {
 public:
  OrderedPieces(unsigned threads, Read read, MakeWorker makeWorker, Write write)
      : threadCount_(threads),
        read_(std::move(read)),
        makeWorker_(std::move(makeWorker)),
        write_(std::move(write)),
        slots_(2 * size_t{threads}) {}

  ~OrderedPieces() {
    {
      const std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    workArrived_.notify_all();
    for (std::thread& thread : threads_) thread.join();
  }

  OrderedPieces(const OrderedPieces&) = delete;
  OrderedPieces& operator=(const OrderedPieces&) = delete;

  void run() {
    for (unsigned i = 0; i < threadCount_; ++i) {
      threads_.emplace_back([this, worker = makeWorker_()]() mutable { work(worker); });
    }
    size_t filled = 0;
    size_t written = 0;
    bool more = true;
    while (more || written < filled) {
      if (more && filled - written < slots_.size()) {
        more = read_(slot(filled).piece);
        if (more) hand(slot(filled++));
      } else {
        write_(await(slot(written++)));
      }
    }
  }

 private:
  struct Slot {
    Piece piece;
    bool done = false;
    std::exception_ptr failure;
  };

  Slot& slot(size_t number) { return slots_[number % slots_.size()]; }

  void hand(Slot& slot) {
    {
      const std::lock_guard lock(mutex_);
      slot.done = false;
      waiting_.push_back(&slot);
    }
    workArrived_.notify_one();
  }

  Piece& await(Slot& slot) {
    std::unique_lock lock(mutex_);
    workDone_.wait(lock, [&] { return slot.done; });
    if (slot.failure) std::rethrow_exception(slot.failure);
    return slot.piece;
  }

  template <typename Worker>
  void work(Worker& worker) {
    while (Slot* slot = takeWaiting()) {
      std::exception_ptr failure;
      try {
        worker(slot->piece);
      } catch (...) {
        failure = std::current_exception();
      }
      {
        const std::lock_guard lock(mutex_);
        slot->failure = failure;
        slot->done = true;
      }
      workDone_.notify_one();
    }
  }

  Slot* takeWaiting() {
    std::unique_lock lock(mutex_);
    workArrived_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
    if (stopping_) return nullptr;
    Slot* const slot = waiting_.front();
    waiting_.pop_front();
    return slot;
  }

  unsigned threadCount_;
  Read read_;
  MakeWorker makeWorker_;
  Write write_;
  std::vector<Slot> slots_;
  std::deque<Slot*> waiting_;
  bool stopping_ = false;
  std::mutex mutex_;
  std::condition_variable workArrived_;
  std::condition_variable workDone_;
  std::vector<std::thread> threads_;
};

// With one thread, everything runs on the caller's, one piece after the other.
template <typename Piece, typename Read, typename MakeWorker, typename Write>
void processInOrder(unsigned threads, Read read, MakeWorker makeWorker, Write write) {
  if (threads == 1) {
    auto worker = makeWorker();
    for (Piece piece; read(piece);) {
      worker(piece);
      write(piece);
    }
    return;
  }
  OrderedPieces<Piece, Read, MakeWorker, Write>(threads, std::move(read), std::move(makeWorker),
                                                std::move(write))
      .run();
}

}  // namespace zebz

#endif

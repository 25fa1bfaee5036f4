// The pieces of one stream decoded on several threads and read back in order.
//
// One producer thread cuts pieces (reading the file as it goes); worker threads decode them; the
// reading thread takes them in stream order. The reading thread also decodes: whenever the piece
// it needs next is not ready, it takes the oldest piece nobody has started and decodes that
// instead of waiting. On two cores this is what reaches past one core's inflating speed: parsing
// costs about half of what inflating does, so a reader that only parsed would leave its core idle
// a third of the time. Two workers beside a reader that only parses (three busy threads on two
// cores, which the scheduler then shares out) measured slower: on two cores, with a BGZF copy of
// the benchmark's 150 bp file, helping took 0.62-0.64 s, two workers 0.72 s, `igzip -d` alone
// 0.81 s. The producer mostly sleeps: cutting is a copy of the compressed bytes.
#include "parallel_decode.h"

#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace genostat {
namespace {

// Pieces cut but not yet handed out, per thread: enough that every thread finds work while the
// reader takes one piece, few enough that memory stays a few MiB per thread (a BGZF piece holds
// about 1 MiB of text).
constexpr std::size_t kPiecesPerThread = 3;

class ParallelSource final : public ByteSource {
 public:
  ParallelSource(std::unique_ptr<PieceCodec> codec, unsigned threads)
      : codec_(std::move(codec)), capacity_(kPiecesPerThread * (threads == 0 ? 1 : threads)) {
    try {
      producer_ = std::thread([this] { produce(); });
      // The reading thread is the last of `threads`: it decodes whenever it would wait.
      for (unsigned i = 1; i < threads; ++i) workers_.emplace_back([this] { work(); });
    } catch (...) {
      stop();
      throw;
    }
  }

  ~ParallelSource() override { stop(); }
  ParallelSource(const ParallelSource&) = delete;
  ParallelSource& operator=(const ParallelSource&) = delete;

  std::size_t read(char* buffer, std::size_t capacity) override {
    if (failed_) std::rethrow_exception(failed_);
    if (ended_) return 0;
    std::size_t copied = 0;
    while (copied < capacity) {
      if (current_ != nullptr && used_ < current_->output.size()) {
        const std::size_t n = std::min(capacity - copied, current_->output.size() - used_);
        std::memcpy(buffer + copied, current_->output.data() + used_, n);
        used_ += n;
        copied += n;
        continue;
      }
      if (copied != 0) return copied;  // hand over what we have before waiting or failing
      if (current_ != nullptr && current_->error) fail(current_->error);
      if (!advance()) {
        ended_ = true;  // finish() has run; it runs once
        return 0;
      }
    }
    return copied;
  }

 private:
  enum class State { Waiting, Decoding, Decoded, Refused, Failed };
  struct Slot {
    Piece piece;
    std::vector<char> output;
    State state = State::Waiting;
    std::exception_ptr error;  // with Failed; output then holds the good bytes before the damage
  };

  void stop() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    space_.notify_all();
    work_.notify_all();
    if (producer_.joinable()) producer_.join();
    for (auto& worker : workers_) worker.join();
  }

  [[noreturn]] void fail(std::exception_ptr error) {
    failed_ = error;
    std::rethrow_exception(error);
  }

  // Replaces the consumed piece with the next one in stream order; false at the end.
  bool advance() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (current_ != nullptr) {
      spare_.push_back(std::move(current_));
      current_ = nullptr;
    }
    for (;;) {
      if (!slots_.empty()) {
        const State state = slots_.front()->state;
        if (state == State::Decoded || state == State::Failed || state == State::Refused) {
          current_ = std::move(slots_.front());
          slots_.pop_front();
          used_ = 0;
          space_.notify_one();
          if (state == State::Refused) rejoin(lock);
          return true;
        }
      } else if (producerDone_) {
        if (producerError_) fail(producerError_);
        lock.unlock();
        try {
          codec_->finish();
        } catch (...) {
          fail(std::current_exception());
        }
        return false;
      }
      // Not ready: decode a piece nobody has started rather than wait.
      if (Slot* slot = firstWaiting()) {
        decode(*slot, lock);
        continue;
      }
      ready_.wait(lock);
    }
  }

  // The current piece could not decode alone: joins its successors to it, in order, until it
  // decodes or the codec gives up. Rare (a wrong cut), so it runs here on the reading thread.
  void rejoin(std::unique_lock<std::mutex>& lock) {
    for (;;) {
      ready_.wait(lock, [this] {
        return (!slots_.empty() && slots_.front()->state != State::Decoding) ||
               (slots_.empty() && producerDone_);
      });
      std::unique_ptr<Slot> next;
      if (!slots_.empty()) {
        next = std::move(slots_.front());
        slots_.pop_front();
        space_.notify_one();
      }
      lock.unlock();
      Slot& slot = *current_;
      if (!codec_->join(slot.piece, next != nullptr ? &next->piece : nullptr)) {
        fail(std::make_exception_ptr(codec_->damaged(slot.piece)));
      }
      const Result result = attempt(slot);  // out of slots_: nobody else sees this slot
      slot.state = result.state;
      slot.error = result.error;
      lock.lock();
      if (next != nullptr) spare_.push_back(std::move(next));
      if (slot.state != State::Refused) return;
    }
  }

  Slot* firstWaiting() const {
    for (const auto& slot : slots_) {
      if (slot->state == State::Waiting) return slot.get();
    }
    return nullptr;
  }

  // Decodes `slot`, which this thread claims, with the lock released meanwhile.
  void decode(Slot& slot, std::unique_lock<std::mutex>& lock) {
    slot.state = State::Decoding;
    lock.unlock();
    const Result result = attempt(slot);
    lock.lock();
    slot.state = result.state;
    slot.error = result.error;
    ready_.notify_one();
  }

  struct Result {
    State state;
    std::exception_ptr error;
  };
  Result attempt(Slot& slot) const {
    try {
      return {codec_->decode(slot.piece, slot.output) ? State::Decoded : State::Refused, nullptr};
    } catch (const StreamDamaged&) {
      return {State::Failed, std::current_exception()};  // the output holds the good bytes
    } catch (...) {
      // Out of memory, say: whatever the output holds (a reused buffer's old text) is not this
      // piece's, and the reader must meet the failure, not a malformed record made of it.
      slot.output.clear();
      return {State::Failed, std::current_exception()};
    }
  }

  void produce() {
    for (;;) {
      std::unique_ptr<Slot> slot;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        space_.wait(lock, [this] { return stopping_ || slots_.size() < capacity_; });
        if (stopping_) return;
        if (!spare_.empty()) {
          slot = std::move(spare_.back());
          spare_.pop_back();
        }
      }
      bool more = false;
      std::exception_ptr error;
      try {
        if (slot == nullptr) slot = std::make_unique<Slot>();
        // A recycled slot keeps its buffers' capacity; the piece is cut afresh.
        slot->piece.input.clear();
        slot->piece.decodedSize = 0;
        slot->piece.first = 0;
        slot->state = State::Waiting;
        slot->error = nullptr;
        more = codec_->split(slot->piece);
      } catch (...) {
        error = std::current_exception();
      }
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (more) {
          slots_.push_back(std::move(slot));
        } else {
          producerDone_ = true;
          producerError_ = error;
        }
      }
      work_.notify_one();
      ready_.notify_one();
      if (!more) return;
    }
  }

  void work() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      Slot* slot = nullptr;
      work_.wait(lock, [this, &slot] { return stopping_ || (slot = firstWaiting()) != nullptr; });
      if (stopping_) return;
      decode(*slot, lock);
    }
  }

  const std::unique_ptr<PieceCodec> codec_;
  const std::size_t capacity_;  // most pieces cut and not yet taken by the reader

  std::mutex mutex_;
  std::condition_variable space_;  // the producer waits for room
  std::condition_variable work_;   // workers wait for a piece to decode
  std::condition_variable ready_;  // the reader waits for its piece (or one to decode)
  // Guarded by mutex_, except the piece and output of a Decoding slot, which belong to the thread
  // decoding it. Slots are held by pointer so that a decoding thread's slot stays put.
  std::deque<std::unique_ptr<Slot>> slots_;   // in stream order
  std::vector<std::unique_ptr<Slot>> spare_;  // consumed slots, reused for their buffers
  bool stopping_ = false;
  bool producerDone_ = false;
  std::exception_ptr producerError_;

  // The reading thread's own.
  std::unique_ptr<Slot> current_;
  std::size_t used_ = 0;
  std::exception_ptr failed_;  // thrown again by every later read
  bool ended_ = false;

  std::thread producer_;
  std::vector<std::thread> workers_;
};

}  // namespace

std::unique_ptr<ByteSource> parallelDecodedSource(std::unique_ptr<PieceCodec> codec,
                                                  unsigned threads) {
  return std::make_unique<ParallelSource>(std::move(codec), threads);
}

}  // namespace genostat

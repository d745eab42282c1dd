// What tests of RowQueue give and take: rows in numbers, and streams that are slow, stand
// still or fail.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "kestrel/json/JsomWriter.h"
#include "output/RowQueue.h"
#include "tests/output/PlainRows.h"

inline constexpr int PRECISION = 6;
inline constexpr uint32_t ROWS_IN_BATCH = 1024;
inline constexpr uint32_t CALLERS_IN_BATCH = 4096;
inline constexpr uint32_t BATCHES = 12;
inline constexpr uint32_t MORE_THAN_ALL_BATCHES = 2 * BATCHES * ROWS_IN_BATCH;

// `count` rows from `first` on, most with few callers or none.
inline std::vector<PlainRow> manyRows(uint32_t count, uint32_t first = 1) {
  std::vector<PlainRow> rows;
  for (uint32_t number = first; number < first + count; ++number) {
    rows.push_back(plainRow(number, number % 8 == 0 ? 3 : 0));
  }
  return rows;
}

// Keeps what is written, and asks beforehand.
class GuardedBuffer : public std::streambuf {
 public:
  // Only while nobody writes.
  const std::string& text() const { return text_; }

 protected:
  // How many of the bytes are taken.
  virtual std::streamsize admit(const char* bytes, std::streamsize length) = 0;

  std::streamsize xsputn(const char* bytes, std::streamsize length) override {
    const std::streamsize taken = admit(bytes, length);
    text_.append(bytes, static_cast<std::size_t>(taken));
    return taken;
  }
  int_type overflow(int_type byte) override {
    const char one = traits_type::to_char_type(byte);
    return xsputn(&one, 1) == 1 ? byte : traits_type::eof();
  }

  std::string text_;
};

// Sleeps every now and then.
class SlowBuffer : public GuardedBuffer {
 protected:
  std::streamsize admit(const char*, std::streamsize length) override {
    if (++writes_ % 512 == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return length;
  }

 private:
  unsigned writes_ = 0;
};

// Takes nothing while it is shut: whoever writes waits.
class GateBuffer : public GuardedBuffer {
 public:
  void shut() { _set(false); }
  void open() { _set(true); }

 protected:
  std::streamsize admit(const char*, std::streamsize length) override {
    std::unique_lock guard(mutex_);
    opened_.wait(guard, [this] { return isOpen_; });
    return length;
  }

 private:
  void _set(bool isOpen) {
    const std::lock_guard guard(mutex_);
    isOpen_ = isOpen;
    opened_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable opened_;
  bool isOpen_ = true;
};

// Throws behind the gate from the second write on.
class TrapBuffer : public GateBuffer {
 protected:
  std::streamsize admit(const char* bytes, std::streamsize length) override {
    GateBuffer::admit(bytes, length);
    if (!text_.empty()) {
      throw std::runtime_error("the buffer was a trap");
    }
    return length;
  }
};

// Takes so many bytes.
class FullBuffer : public GuardedBuffer {
 public:
  explicit FullBuffer(std::size_t room) : room_(room) {}

 protected:
  std::streamsize admit(const char*, std::streamsize length) override {
    return std::min(length, static_cast<std::streamsize>(room_ - text_.size()));
  }

 private:
  const std::size_t room_;
};

// Throws once, instead of the first comma between two rows behind so many bytes.
class ThrowingBuffer : public GateBuffer {
 public:
  explicit ThrowingBuffer(std::size_t room) : room_(room) {}

 protected:
  std::streamsize admit(const char* bytes, std::streamsize length) override {
    GateBuffer::admit(bytes, length);
    if (!hasThrown_ && text_.size() >= room_ && std::string(bytes, bytes + length) == ",") {
      hasThrown_ = true;
      throw std::runtime_error("the buffer has had enough");
    }
    return length;
  }

 private:
  const std::size_t room_;
  bool hasThrown_ = false;
};

// A queue whose rows go into an array, on a stream of this buffer.
template <typename Buffer = std::stringbuf>
struct QueuedArray {
  template <typename... Arguments>
  explicit QueuedArray(Arguments... arguments) : buffer(arguments...) {
    writer.startArray();
  }

  void give(const PlainRow& plain) {
    RowBatch& batch = queue->batch(writer);
    batch.callers.insert(batch.callers.end(), plain.callers.begin(), plain.callers.end());
    batch.rows.push_back(plain.row);
    batch.rows.back().callers = static_cast<uint32_t>(plain.callers.size());
    if (batch.isFull()) {
      queue->submit();
    }
  }
  void giveAll(const std::vector<PlainRow>& plains) {
    for (const PlainRow& plain : plains) {
      give(plain);
    }
  }
  void finish() { queue->finish(); }
  void destroyQueue() { queue.reset(); }
  // What was written by now.
  std::string text() const {
    if constexpr (std::is_same_v<Buffer, std::stringbuf>) {
      return buffer.str();
    } else {
      return buffer.text();
    }
  }
  // The same, when nothing comes any more.
  std::string whole() {
    writer.endArray();
    return text();
  }

  Buffer buffer;
  std::ostream out{&buffer};
  kestrel::JsomWriter writer{&out};
  std::optional<RowQueue> queue{PRECISION};
};

// What the action throws; empty if it throws nothing.
inline std::string problemOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& problem) {
    return problem.what();
  }
  return "";
}

// Gives the rows and finishes from a thread of its own, and tells how far it has come.
class Giver {
 public:
  template <typename Buffer>
  Giver(QueuedArray<Buffer>& array, const std::vector<PlainRow>& plains)
      : thread_([this, &array, &plains] {
          problem_ = problemOf([&] {
            for (const PlainRow& plain : plains) {
              array.give(plain);
              ++given_;
            }
            array.finish();
          });
        }) {}
  ~Giver() { await(); }

  // Returns what was thrown.
  std::string await() {
    if (thread_.joinable()) {
      thread_.join();
    }
    return problem_;
  }

  // How many rows were given when nothing happened for a while.
  std::size_t awaitStandstill() const {
    std::size_t before = 0;
    std::size_t now = 0;
    do {
      before = now;
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      now = given_;
    } while (now != before || now == 0);
    return now;
  }

 private:
  std::atomic<std::size_t> given_{0};
  std::string problem_;
  std::thread thread_;
};

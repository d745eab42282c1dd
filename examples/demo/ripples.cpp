// The program behind the recording of this folder: four threads that each do one kind of work for a
// given time, with call chains through this program, its shared library and the kernel.
//
//   ripples [SECONDS]     default 1.2
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "waves.h"

namespace ripples {

// When the threads stop. A class of its own, so that the names in the profile stay short.
class Deadline {
 public:
  explicit Deadline(double seconds)
      : end_(Clock::now() +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds))) {}
  bool isOver() const { return Clock::now() >= end_; }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point end_;
};

struct Message {
  unsigned char bytes[1024] = {};
};

// Named and kept apart for the profile, as in the library.
[[gnu::noinline]] void simulatePond(Deadline deadline);
[[gnu::noinline]] void paintPictures(Deadline deadline);
[[gnu::noinline]] void solveEquations(Deadline deadline);
[[gnu::noinline]] void carryMessages(Deadline deadline);
[[gnu::noinline]] void drawGradient(waves::Grid& picture, unsigned frame);
[[gnu::noinline]] unsigned mixHash(unsigned hash, const Message& message);
[[gnu::noinline]] bool exchangeMessage(int writeEnd, int readEnd, Message& message);

void nameThread(const char* name) { pthread_setname_np(pthread_self(), name); }

void simulatePond(Deadline deadline) {
  nameThread("pond");
  waves::Grid now(256);
  waves::Grid before(256);
  for (unsigned step = 0; !deadline.isOver(); ++step) {
    if (step % 16 == 0) {
      waves::dropStone(now, step * 37U, step * 53U, 100.0F);
    }
    waves::stepPond(now, before);
  }
}

void drawGradient(waves::Grid& picture, unsigned frame) {
  for (std::size_t row = 0; row < picture.side; ++row) {
    for (std::size_t column = 0; column < picture.side; ++column) {
      picture.cells[row * picture.side + column] =
          static_cast<float>((row * column + frame) % 255U) / 255.0F;
    }
  }
}

void paintPictures(Deadline deadline) {
  nameThread("painter");
  for (unsigned frame = 0; !deadline.isOver(); ++frame) {
    waves::Grid picture(192);
    drawGradient(picture, frame);
    waves::blurImage(picture, 4);
  }
}

void solveEquations(Deadline deadline) {
  nameThread("solver");
  waves::Grid left(96);
  waves::Grid right(96);
  waves::Grid product(96);
  drawGradient(left, 1);
  drawGradient(right, 2);
  while (!deadline.isOver()) {
    waves::multiplyMatrices(left, right, product);
  }
}

unsigned mixHash(unsigned hash, const Message& message) {
  for (const unsigned char byte : message.bytes) {
    hash = (hash ^ byte) * 16777619U;
  }
  return hash;
}

bool exchangeMessage(int writeEnd, int readEnd, Message& message) {
  const ssize_t sent = write(writeEnd, message.bytes, sizeof(message.bytes));
  return sent >= 0 && read(readEnd, message.bytes, static_cast<std::size_t>(sent)) == sent;
}

void carryMessages(Deadline deadline) {
  nameThread("courier");
  int ends[2];
  if (pipe(ends) != 0) {
    return;
  }
  Message message;
  unsigned hash = 2166136261U;
  while (!deadline.isOver() && exchangeMessage(ends[1], ends[0], message)) {
    hash = mixHash(hash, message);
    message.bytes[hash % sizeof(message.bytes)] = static_cast<unsigned char>(hash);
  }
  close(ends[0]);
  close(ends[1]);
}

}  // namespace ripples

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::strtod(argv[1], nullptr) : 1.2;
  const ripples::Deadline deadline(seconds);
  std::thread pond(ripples::simulatePond, deadline);
  std::thread painter(ripples::paintPictures, deadline);
  std::thread solver(ripples::solveEquations, deadline);
  std::thread courier(ripples::carryMessages, deadline);
  pond.join();
  painter.join();
  solver.join();
  courier.join();
  std::puts("ripples: done");
  return 0;
}

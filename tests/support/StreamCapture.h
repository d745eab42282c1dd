// Catches what the process writes to one of its standard descriptors, by whatever means, for a
// scope. Not nested, and one at a time for each descriptor.
#pragma once

#include <cstdio>
#include <string>

class StreamCapture {
 public:
  StreamCapture(const StreamCapture&) = delete;
  StreamCapture& operator=(const StreamCapture&) = delete;

  // What has reached the descriptor so far; lines that still sit in a stream's buffer are not among
  // it.
  std::string text() const;
  // Flushes the standard streams, ends the capture and returns everything. text() goes on returning
  // it.
  std::string stop();

 protected:
  explicit StreamCapture(int descriptor);
  ~StreamCapture();

 private:
  const int descriptor_;
  int saved_;        // the original; -1 once the capture has ended
  std::FILE* file_;  // takes the output
};

class StdoutCapture : public StreamCapture {
 public:
  StdoutCapture();
};

class StderrCapture : public StreamCapture {
 public:
  StderrCapture();
};

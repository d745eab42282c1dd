#include "prepare/PlainTasks.h"

#include "prepare/ShelfText.h"

namespace prepare {

std::string PlainProcess::text() const {
  ShelfWriter text;
  text.put(kernelHits);
  text.put(name);
  placement.save(text);
  return text.take();
}

PlainProcess PlainProcess::restored(const std::string& text, const recordings::MappedFiles& files) {
  ShelfReader fields(text);
  PlainProcess process;
  process.kernelHits = fields.number();
  process.name = fields.text();
  process.placement.restore(fields, files);
  return process;
}

void SampledThread::rename(const std::string& last) {
  if (last.empty() || last == name) {
    return;
  }
  if (underName > 0) {
    underOthers[name] += underName;
  }
  name = last;
  underName = 0;
}

std::uint64_t SampledThread::samplesUnderOtherNames() const {
  std::uint64_t sum = 0;
  for (const auto& [other, count] : underOthers) {
    sum += other != name ? count : 0;
  }
  return sum;
}

std::string SampledThread::text() const {
  ShelfWriter text;
  text.put(pid).put(recordedTid).put(isNameSettled ? 1u : 0u).put(samples).put(name).put(underName);
  for (const auto& [other, count] : underOthers) {
    text.put(other).put(count);
  }
  return text.take();
}

SampledThread SampledThread::restored(const std::string& text) {
  ShelfReader fields(text);
  SampledThread thread;
  thread.pid = static_cast<std::uint32_t>(fields.number());
  thread.recordedTid = static_cast<std::uint32_t>(fields.number());
  thread.isNameSettled = fields.number() != 0;
  thread.samples = fields.number();
  thread.name = fields.text();
  thread.underName = fields.number();
  while (!fields.isAtEnd()) {
    const std::string other = fields.text();
    thread.underOthers[other] = fields.number();
  }
  return thread;
}

}  // namespace prepare

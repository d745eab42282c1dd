#include "output/SampleWriter.h"

#include "app/PerfSettings.h"
#include "kestrel/Singleton.h"
#include "kestrel/log/Logger.h"
#include "model/DocumentTable.h"
#include "model/RangedItem.h"
#include "model/ThreadStore.h"

namespace {

int _timePrecision() {
  return static_cast<int>(kestrel::Singleton<PerfSettings>::Instance()->timePrecision);
}

}  // namespace

SampleWriter::SampleWriter(Mode mode)
    : threads_(kestrel::Singleton<ThreadStore>::Instance()),
      text_(_timePrecision()),
      resolver_([this] {
        if (writer_ != nullptr) {
          text_.writeBeginning(*writer_);
        }
      }) {
  kestrel::Logger::getLogger("SampleWriter");
  if (mode == Mode::InBackground) {
    queue_.emplace(_timePrecision());
  }
}

void SampleWriter::writeHeader(kestrel::JsomWriter& writer) const { SampleRow::openTable(writer); }

void SampleWriter::writeSample(kestrel::JsomWriter& writer, const SampleInfo& sample) const {
  ThreadInfo* const thread = threads_->getThread(sample.pid, sample.tid);
  ++thread->refCount;
  SampleRow row;
  row.sample = sample;
  row.key = _keyOf(thread, sample.ip);
  row.number = ++sampleCount_;
  row.callers = static_cast<uint32_t>(sample.backtrace.size());
  if (queue_) {
    RowBatch& batch = queue_->batch(writer);
    for (const uint64_t address : sample.backtrace) {
      batch.callers.push_back({address, _keyOf(thread, address)});
    }
    batch.rows.push_back(row);
    if (batch.isFull()) {
      queue_->submit();
    }
  } else {
    writer_ = &writer;
    text_.startRow(row);
    for (const uint64_t address : sample.backtrace) {
      text_.addCaller({address, _keyOf(thread, address)});
    }
    text_.endRow(writer);
  }
}

void SampleWriter::writeFooter(kestrel::JsomWriter& writer) const {
  if (queue_) {
    queue_->finish();
  }
  closeDocumentTable(writer);
}

RangedItem* SampleWriter::_getMemMap(ThreadInfo* thread, unsigned long long address) const {
  return resolver_.resolve(thread, address);
}

uint64_t SampleWriter::_keyOf(ThreadInfo* thread, uint64_t address) const {
  return resolver_.resolve(thread, address)->key;
}

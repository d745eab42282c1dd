// The tables of PlainConversion that follow the samples.
#include "tests/app/PlainConversion.h"

namespace {

// The letter that stands behind a backslash for this byte, or 0.
char escapeOf(char byte) {
  switch (byte) {
    case '\b':
      return 'b';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\f':
      return 'f';
    case '\r':
      return 'r';
    case '"':
    case '\\':
      return byte;
    default:
      return 0;
  }
}

}  // namespace

// Counted: two quotes, one for each escape, and the bytes behind the last of them.
void PlainConversion::_writeText(const std::string& text) {
  std::string escaped;
  std::size_t escapes = 0;
  std::size_t behind = 0;
  for (const char byte : text) {
    if (const char letter = escapeOf(byte)) {
      escaped += '\\';
      escaped += letter;
      ++escapes;
      behind = 0;
    } else {
      escaped += byte;
      ++behind;
    }
  }
  document_.quoted(escaped, 2 + escapes + behind);
}

void PlainConversion::_writeLibraries() {
  document_.openTable("libraries");
  for (const PlainMap* const fixed : {&kernelMap_, &stackMap_}) {
    if (fixed->uses > 0) {
      _writeLibrary(0, *fixed);
    }
  }
  for (const auto& [pid, store] : maps_) {
    for (const auto& map : store.items) {
      if (map->uses > 0) {
        _writeLibrary(pid, *map);
        ++_threadOf(pid, pid).uses;
      }
    }
  }
  document_.closeTable();
}

void PlainConversion::_writeLibrary(uint32_t pid, const PlainMap& map) {
  document_.open('[').value(map.key).value(pid);
  _writeText(map.name.size() < 4 ? "*BlankName*" : map.name);
  document_.value(map.start).value(map.size).close(']');
}

void PlainConversion::_writeFunctions() {
  document_.openTable("functions");
  for (const auto& [located, table] : tables_) {
    for (const auto& function : table.functions.items) {
      if (function->uses == 0) {
        continue;
      }
      document_.open('[').value(function->key);
      _writeText(function->name.size() <= 2 ? "*BlankName*" : function->name);
      document_.value(function->start).value(function->size).open('[');
      for (const auto& [key, map] : table.users) {
        if (map->uses > 0) {
          document_.value(key);
        }
      }
      document_.close(']').close(']');
    }
  }
  document_.closeTable();
}

void PlainConversion::_writeProcesses() {
  document_.openTable("processes");
  for (const auto& [tid, thread] : threads_) {
    if (thread.uses > 0) {
      document_.open('[').value(tid).value(thread.pid).value(tid);
      _writeText(thread.name);
      document_.close(']');
    }
  }
  document_.closeTable();
}

void PlainConversion::_writeFiles() {
  document_.openTable("files");
  unsigned row = 0;
  for (const auto& [file, functions] : sources_) {
    bool isUsed = false;
    for (const PlainFunction* const function : functions) {
      isUsed = isUsed || function->uses > 0;
    }
    if (!isUsed) {
      continue;
    }
    document_.open('[').value(++row);
    _writeText(file);
    document_.open('[');
    for (const PlainFunction* const function : functions) {
      if (function->uses > 0) {
        document_.open('[').value(function->key).value(0ULL).close(']');
      }
    }
    document_.close(']').close(']');
  }
  document_.closeTable();
}

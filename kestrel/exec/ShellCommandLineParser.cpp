#include "kestrel/exec/ShellCommandLineParser.h"

#include <cstddef>

namespace kestrel {

namespace {

constexpr std::size_t EXPECTED_WORDS = 32;
constexpr std::size_t EXPECTED_WORD_LENGTH = 265;

enum class State {
  BETWEEN_WORDS,
  IN_WORD,
  AFTER_BACKSLASH,
  IN_SINGLE_QUOTES,
  IN_DOUBLE_QUOTES,
  BACKSLASH_IN_DOUBLE_QUOTES,
};

bool _isSeparator(char c) { return c == ' ' || c == '\t'; }

// Appends what a backslash followed by `c` stands for.
void _appendEscaped(char c, std::string& word) {
  switch (c) {
    case '"':
    case '\'':
    case '\\':
    case ' ':  // an escaped blank belongs to its word
      word += c;
      break;
    case 'a':
      word += '\a';
      break;
    case 'b':
      word += '\b';
      break;
    case 'e':
    case 'E':
      word += '\\';  // kept: not the escape character
      break;
    case 'f':
      word += '\f';
      break;
    case 'n':
      word += '\n';
      break;
    case 'r':
      word += '\r';
      break;
    case 't':
      word += '\t';
      break;
    case 'v':
      word += '\v';
      break;
    default:
      word += '\\';
      word += c;
      break;
  }
}

// The letter that follows the backslash in the escape of `c`, or 0 when `c` stands for itself
// inside double quotes.
char _escapeLetter(char c) {
  switch (c) {
    case '"':
    case '\\':
      return c;
    case '\a':
      return 'a';
    case '\b':
      return 'b';
    case '\f':
      return 'f';
    case '\n':
      return 'n';
    case '\r':
      return 'r';
    case '\t':
      return 't';
    case '\v':
      return 'v';
    default:
      return 0;
  }
}

bool _needsQuotes(const std::string& word) {
  if (word.empty()) {
    return true;
  }
  for (const char c : word) {
    if (c == ' ' || c == '\'' || _escapeLetter(c) != 0) {
      return true;
    }
  }
  return false;
}

void _appendQuoted(const std::string& word, std::string& line) {
  line += '"';
  for (const char c : word) {
    const char letter = _escapeLetter(c);
    if (letter != 0) {
      line += '\\';
      line += letter;
    } else {
      line += c;
    }
  }
  line += '"';
}

// A character outside quotes that belongs to a word: appends it, or enters the state that it opens.
State _takeInWord(char c, std::string& word) {
  switch (c) {
    case '"':
      return State::IN_DOUBLE_QUOTES;
    case '\'':
      return State::IN_SINGLE_QUOTES;
    case '\\':
      return State::AFTER_BACKSLASH;
    default:
      word += c;
      return State::IN_WORD;
  }
}

State _takeInDoubleQuotes(char c, std::string& word) {
  switch (c) {
    case '"':
      return State::IN_WORD;
    case '\\':
      return State::BACKSLASH_IN_DOUBLE_QUOTES;
    default:
      word += c;
      return State::IN_DOUBLE_QUOTES;
  }
}

}  // namespace

void ShellCommandLineParser::parse(const std::string& line, std::vector<std::string>& args) {
  args.reserve(EXPECTED_WORDS);
  std::string word;
  word.reserve(EXPECTED_WORD_LENGTH);
  State state = State::BETWEEN_WORDS;
  for (const char c : line) {
    switch (state) {
      case State::BETWEEN_WORDS:
        if (!_isSeparator(c)) {
          state = _takeInWord(c, word);
        }
        break;
      case State::IN_WORD:
        if (_isSeparator(c)) {
          args.push_back(word);
          word.clear();
          state = State::BETWEEN_WORDS;
        } else {
          state = _takeInWord(c, word);
        }
        break;
      case State::AFTER_BACKSLASH:
        _appendEscaped(c, word);
        state = State::IN_WORD;
        break;
      case State::IN_SINGLE_QUOTES:
        if (c == '\'') {
          state = State::IN_WORD;
        } else {
          word += c;
        }
        break;
      case State::IN_DOUBLE_QUOTES:
        state = _takeInDoubleQuotes(c, word);
        break;
      case State::BACKSLASH_IN_DOUBLE_QUOTES:
        _appendEscaped(c, word);
        state = State::IN_DOUBLE_QUOTES;
        break;
    }
  }
  if (state != State::BETWEEN_WORDS) {
    args.push_back(word);
  }
}

std::string ShellCommandLineParser::unparse(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    if (&word != &words.front()) {
      line += ' ';
    }
    if (_needsQuotes(word)) {
      _appendQuoted(word, line);
    } else {
      line += word;
    }
  }
  return line;
}

}  // namespace kestrel

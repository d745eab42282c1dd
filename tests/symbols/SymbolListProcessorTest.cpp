#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kestrel/Singleton.h"
#include "kestrel/json/JsomWriter.h"
#include "symbols/SourceFileStore.h"
#include "symbols/SymbolListProcessor.h"
#include "symbols/SymbolTable.h"
#include "tests/support/FreshStores.h"
#include "tests/support/JsonText.h"
#include "tests/support/LogCapture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct Entry {
  uint64_t start;
  uint64_t size;
  std::string name;

  bool operator==(const Entry&) const = default;
};

void PrintTo(const Entry& entry, std::ostream* out) {
  *out << std::hex << entry.start << " +" << entry.size << " '" << entry.name << "'";
}

// A base, so that it comes before the processor, which takes the store at construction.
class FreshStores : public testing::Test {
 protected:
  FreshStores() { makeStoresAnew(); }
};

class SymbolListProcessorTest : public FreshStores {
 protected:
  void push(const std::string& text) {
    processor.processBuffer(text.data(), static_cast<int>(text.size()));
  }
  // The entries after this list.
  std::vector<Entry> parse(const std::string& list) {
    push(list);
    processor.processEOF();
    return entries();
  }
  std::vector<Entry> entries() const {
    std::vector<Entry> all;
    for (const RangedItem* item : table.items()) {
      const auto& function = dynamic_cast<const FunctionInfo&>(*item);
      all.push_back({function.start, function.size, std::string(function.name)});
    }
    return all;
  }
  FunctionInfo& entry(std::size_t index) {
    return dynamic_cast<FunctionInfo&>(*table.items()[index]);
  }
  // The rows of the "files" table, every function counted as hit.
  std::string files() {
    for (RangedItem* item : table.items()) {
      dynamic_cast<FunctionInfo&>(*item).refCount = 1;
    }
    const std::string text = jsonObjectText([](kestrel::JsomWriter& writer) {
      kestrel::Singleton<SourceFileStore>::Instance()->writeLegacyJsonObject(writer, true);
    });
    const std::string mark = "\"data\":";
    return text.substr(text.find(mark) + mark.size());
  }

  SymbolTable table;
  SymbolListProcessor processor{&table};
};

// The last symbol has no successor to show its source file, so lists of one symbol get this one.
const std::string END = "ffffffff00000000 T end\n";
const Entry END_ENTRY{0xffffffff00000000, 1, "end"};

// What becomes of a single line: its name, or nothing when it is no symbol.
class SymbolListLineTest : public SymbolListProcessorTest {
 protected:
  std::optional<std::string> nameOf(const std::string& line) {
    const std::vector<Entry> all = parse(line + "\n");
    return all.empty() ? std::nullopt : std::optional(all.front().name);
  }
};

TEST_F(SymbolListProcessorTest, EmptyListYieldsNothing) {
  EXPECT_THAT(parse(""), IsEmpty());
  EXPECT_EQ(KeyGenerator::counter, 0u);
}

TEST_F(SymbolListProcessorTest, ListWithOneSymbolYieldsOneEntryOfSizeOne) {
  EXPECT_THAT(parse("0000a3c0 T main\n"), ElementsAre(Entry{0xa3c0, 1, "main"}));
}

TEST_F(SymbolListProcessorTest, ListWithOneSymbolAtAddressZeroYieldsNone) {
  EXPECT_THAT(parse("0000000000000000 T _text\n"), IsEmpty());
}

TEST_F(SymbolListProcessorTest, RestrictedKernelListWithAllAddressesZeroYieldsNone) {
  EXPECT_THAT(parse("0000000000000000 T _text\n0000000000000000 t do_one\n"
                    "0000000000000000 t helper\t[module]\n"),
              IsEmpty());
}

TEST_F(SymbolListProcessorTest, SymbolAtAddressZeroBeforeOthersIsKept) {
  EXPECT_THAT(parse("00000000 T first\n00000010 T second\n"),
              ElementsAre(Entry{0, 0x10, "first"}, Entry{0x10, 1, "second"}));
}

TEST_F(SymbolListProcessorTest, SizesReachToTheNextSymbolInAddressOrder) {
  EXPECT_THAT(
      parse("00003000 T c\n00001000 T a\n00002000 T b\n"),
      ElementsAre(Entry{0x1000, 0x1000, "a"}, Entry{0x2000, 0x1000, "b"}, Entry{0x3000, 1, "c"}));
}

TEST_F(SymbolListProcessorTest, KeysFollowTheAddressesNotTheLines) {
  KeyGenerator::counter = 10;
  parse("00003000 T c\n00001000 T a\n00002000 T b\n");
  EXPECT_EQ(entry(0).key, 10u);
  EXPECT_EQ(entry(1).key, 11u);
  EXPECT_EQ(entry(2).key, 12u);
  EXPECT_EQ(KeyGenerator::counter, 13u);
}

TEST_F(SymbolListProcessorTest, EntriesHaveNoUsesAndNoLineNumber) {
  parse("00001000 T first\t/src/a.c:12\n00002000 T second\t/src/a.c:13\n");
  EXPECT_EQ(entry(0).refCount, 0u);
  EXPECT_EQ(entry(0).lineNumber, 0u);
  EXPECT_EQ(entry(1).lineNumber, 0u);
}

TEST_F(SymbolListProcessorTest, LastLineListedForAnAddressWins) {
  EXPECT_THAT(parse("00001000 T first\n00001000 W second\n00001800 T next\n"),
              ElementsAre(Entry{0x1000, 0x800, "second"}, Entry{0x1800, 1, "next"}));
}

TEST_F(SymbolListProcessorTest, LastLineListedForAnAddressAlsoDecidesTheSourceFile) {
  parse(
      "00001000 T first\t/src/a.c:1\n00001000 T second\n00002000 T third\n"
      "00002000 T fourth\t/src/b.c:1\n" +
      END);
  EXPECT_EQ(files(), R"([[1,"/src/b.c",[[1,0]]]]}})");
}

TEST_F(SymbolListProcessorTest, OtherTypesAreNoEntriesAndDoNotInterruptSizes) {
  EXPECT_THAT(parse("00001000 T first\n00001100 D data\n00001200 B bss\n00001300 r ro\n"
                    "00001400 V weakobject\n00001500 i ifunc\n         U undefined\n"
                    "00002000 T second\n"),
              ElementsAre(Entry{0x1000, 0x1000, "first"}, Entry{0x2000, 1, "second"}));
}

TEST_F(SymbolListProcessorTest, IgnoredLineDoesNotReplaceASymbolOfItsAddress) {
  EXPECT_THAT(parse("00001000 T first\n00001000 D data\n00001000 T $a\n"),
              ElementsAre(Entry{0x1000, 1, "first"}));
}

TEST_F(SymbolListProcessorTest, HighestAddressOf64Bits) {
  EXPECT_THAT(
      parse("0 T first\nffffffffffffffff T last\n"),
      ElementsAre(Entry{0, 0xFFFFFFFFFFFFFFFF, "first"}, Entry{0xFFFFFFFFFFFFFFFF, 1, "last"}));
}

TEST_F(SymbolListProcessorTest, FinalLineWithoutLineFeedIsNeverParsed) {
  EXPECT_THAT(parse("00001000 T first\n00002000 T second"), ElementsAre(Entry{0x1000, 1, "first"}));
}

TEST_F(SymbolListProcessorTest, LinesMayComeInPiecesOfAnySize) {
  for (const char byte : std::string("00001000 T first\n00002000 T second\n")) {
    push(std::string(1, byte));
  }
  processor.processEOF();
  EXPECT_THAT(entries(), ElementsAre(Entry{0x1000, 0x1000, "first"}, Entry{0x2000, 1, "second"}));
}

TEST_F(SymbolListProcessorTest, CarriageReturnsAreDropped) {
  EXPECT_THAT(parse("00001000 T first\r\n"), ElementsAre(Entry{0x1000, 1, "first"}));
}

TEST_F(SymbolListProcessorTest, EndOfDataLeavesTheSymbolsAndTheProcessorUsable) {
  parse("00001000 T first\n");
  EXPECT_THAT(parse("00002000 T second\n"),
              ElementsAre(Entry{0x1000, 1, "first"}, Entry{0x1000, 0x1000, "first"},
                          Entry{0x2000, 1, "second"}));
}

TEST_F(SymbolListProcessorTest, NothingIsLoggedForIgnoredLines) {
  const LogCapture log;
  parse("garbage\n\n         U undefined\n00001000 D data\n00001000 T $a\n");
  EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(SymbolListProcessorTest, ReadErrorIsLoggedAndTheSymbolsSoFarStillBecomeEntries) {
  const LogCapture log;
  push("00001000 T first\n");
  processor.processError("disk on fire");
  EXPECT_THAT(log.lines(), ElementsAre(LogLine{"ERROR", "SymbolListProcessor",
                                               "Error parsing symbols: disk on fire"}));
  push("00002000 T second\n");  // the stream does not count as ended
  processor.processEOF();
  EXPECT_THAT(entries(), ElementsAre(Entry{0x1000, 0x1000, "first"}, Entry{0x2000, 1, "second"}));
}

TEST_F(SymbolListProcessorTest, SourceFileIsRegisteredForAllButTheLastSymbol) {
  parse("00001000 T first\t/src/a.c:12\n00002000 T second\t/src/b.c:13\n");
  EXPECT_EQ(files(), R"([[1,"/src/a.c",[[0,0]]]]}})");
}

TEST_F(SymbolListProcessorTest, SymbolsOfOneFileAreListedTogether) {
  parse(
      "00001000 T first\t/src/a.c:12\n00002000 T second\t/src/b.c:1\n"
      "00003000 T third\t/src/a.c:9\n" +
      END);
  EXPECT_EQ(files(), R"([[1,"/src/a.c",[[0,0],[2,0]]],[2,"/src/b.c",[[1,0]]]]}})");
}

TEST_F(SymbolListProcessorTest, SourceFileWithAColonIsCutAtTheFirst) {
  parse("00001000 T first\tC:\\src\\a.c:12\n" + END);
  EXPECT_EQ(files(), R"([[1,"C",[[0,0]]]]}})");
}

TEST_F(SymbolListProcessorTest, SourcePositionWithoutColonGivesNoFile) {
  EXPECT_THAT(parse("00001000 T first\t/src/a.c\n" + END),
              ElementsAre(Entry{0x1000, 0xfffffffeffff0000 + 0xf000, "first"}, END_ENTRY));
  EXPECT_EQ(files(), "[]}}");
}

TEST_F(SymbolListProcessorTest, SourcePositionThatBeginsWithAColonGivesNoFile) {
  parse("00001000 T first\t:12\n" + END);
  EXPECT_EQ(entry(0).name, "first");
  EXPECT_EQ(files(), "[]}}");
}

TEST_F(SymbolListProcessorTest, SourcePositionKeepsItsBlanksAndTabs) {
  parse("00001000 T first\t/my src/\ta.c:12\n" + END);
  EXPECT_EQ(files(), R"([[1,"/my src/\ta.c",[[0,0]]]]}})");
}

TEST_F(SymbolListProcessorTest, KernelModuleLineIsAcceptedWithoutSourceFile) {
  EXPECT_THAT(
      parse("bf000000 t ext4_init\t[ext4]\nbf001000 t ext4_exit\t[ext4]\n"),
      ElementsAre(Entry{0xbf000000, 0x1000, "ext4_init"}, Entry{0xbf001000, 1, "ext4_exit"}));
  EXPECT_EQ(files(), "[]}}");
}

TEST_F(SymbolListLineTest, KernelLine) { EXPECT_EQ(nameOf("c0008000 T stext"), "stext"); }

TEST_F(SymbolListLineTest, WholeExampleLine) {
  EXPECT_THAT(parse("0000a3c0 T main\t/src/main.c:12\n" + END),
              ElementsAre(Entry{0xa3c0, 0xffffffff00000000 - 0xa3c0, "main"}, END_ENTRY));
  EXPECT_EQ(files(), R"([[1,"/src/main.c",[[0,0]]]]}})");
}

TEST_F(SymbolListLineTest, TypeSmallT) { EXPECT_EQ(nameOf("1000 t f"), "f"); }
TEST_F(SymbolListLineTest, TypeW) { EXPECT_EQ(nameOf("1000 W f"), "f"); }
TEST_F(SymbolListLineTest, TypeSmallW) { EXPECT_EQ(nameOf("1000 w f"), "f"); }
TEST_F(SymbolListLineTest, TypeU) { EXPECT_EQ(nameOf("1000 U f"), std::nullopt); }
TEST_F(SymbolListLineTest, TypeQuestionMark) { EXPECT_EQ(nameOf("1000 ? f"), std::nullopt); }

TEST_F(SymbolListLineTest, NoOtherByteIsATypeLetter) {
  for (int byte = 1; byte < 256; ++byte) {
    const char letter = static_cast<char>(byte);
    if (std::string("TtWw\n").find(letter) == std::string::npos) {
      push(std::string("1000 ") + letter + " f\n");
    }
  }
  processor.processEOF();
  EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(SymbolListLineTest, NulIsNoTypeLetter) {
  EXPECT_EQ(nameOf(std::string("1000 \0 f", 8)), std::nullopt);
}

TEST_F(SymbolListLineTest, MappingSymbolA) { EXPECT_EQ(nameOf("1000 t $a"), std::nullopt); }
TEST_F(SymbolListLineTest, MappingSymbolD) { EXPECT_EQ(nameOf("1000 t $d.12"), std::nullopt); }
TEST_F(SymbolListLineTest, MappingSymbolT) { EXPECT_EQ(nameOf("1000 t $t"), std::nullopt); }

TEST_F(SymbolListLineTest, MappingMarkInsideANameDropsTheLine) {
  EXPECT_EQ(nameOf("1000 T lambda$anon"), std::nullopt);
}

TEST_F(SymbolListLineTest, MappingMarkInTheSourcePositionDropsTheLine) {
  EXPECT_EQ(nameOf("1000 T main\t/src/$tmp.c:1"), std::nullopt);
}

TEST_F(SymbolListLineTest, OtherDollarNamesStay) { EXPECT_EQ(nameOf("1000 T $x"), "$x"); }

TEST_F(SymbolListLineTest, MappingMarksAreCaseSensitive) {
  EXPECT_EQ(nameOf("1000 T $A$D$T$"), "$A$D$T$");
}

TEST_F(SymbolListLineTest, BlankAddressOfAnUndefinedSymbol) {
  EXPECT_EQ(nameOf("                 U printf"), std::nullopt);
}

TEST_F(SymbolListLineTest, BlankAddressOfAWeakUndefinedSymbol) {
  EXPECT_EQ(nameOf("                 w __gmon_start__"), std::nullopt);
}

TEST_F(SymbolListLineTest, EmptyLine) { EXPECT_EQ(nameOf(""), std::nullopt); }
TEST_F(SymbolListLineTest, LineOfBlanks) { EXPECT_EQ(nameOf("   \t "), std::nullopt); }
TEST_F(SymbolListLineTest, AddressAlone) { EXPECT_EQ(nameOf("00001000"), std::nullopt); }
TEST_F(SymbolListLineTest, AddressAndBlanks) { EXPECT_EQ(nameOf("00001000   "), std::nullopt); }
TEST_F(SymbolListLineTest, TypeAlone) { EXPECT_EQ(nameOf("00001000 T"), std::nullopt); }
TEST_F(SymbolListLineTest, SeparatorWithoutName) { EXPECT_EQ(nameOf("00001000 T "), std::nullopt); }

TEST_F(SymbolListLineTest, ErrorTextOfAListerIsIgnored) {
  EXPECT_EQ(nameOf("/usr/bin/nm: /lib/x.so: no symbols"), std::nullopt);
}

TEST_F(SymbolListLineTest, BlanksAndTabsBeforeTheAddressAreSkipped) {
  EXPECT_THAT(parse(" \t\v\f 1000 T f\n"), ElementsAre(Entry{0x1000, 1, "f"}));
}

TEST_F(SymbolListLineTest, BlanksAndTabsBeforeTheTypeAreSkipped) {
  EXPECT_EQ(nameOf("1000 \t  T f"), "f");
}

TEST_F(SymbolListLineTest, TypeNeedsNoBlankBeforeIt) {
  EXPECT_THAT(parse("1000T f\n"), ElementsAre(Entry{0x1000, 1, "f"}));
}

TEST_F(SymbolListLineTest, TypeLetterThatIsAHexadecimalDigitJoinsAnAddressThatItTouches) {
  EXPECT_THAT(parse("1000bT f\n"), ElementsAre(Entry{0x1000b, 1, "f"}));
}

TEST_F(SymbolListLineTest, MissingSeparatorEatsTheFirstCharacterOfTheName) {
  EXPECT_EQ(nameOf("1000 Tfoo"), "oo");
}

TEST_F(SymbolListLineTest, OneCharacterAfterTheTypeIsTheSeparatorNotAName) {
  EXPECT_EQ(nameOf("1000 Tf"), std::nullopt);
}

TEST_F(SymbolListLineTest, TabAsSeparatorIsSkippedLikeAnyCharacter) {
  EXPECT_EQ(nameOf("1000 T\tmain"), "main");
}

TEST_F(SymbolListLineTest, OnlyOneSeparatorIsSkipped) { EXPECT_EQ(nameOf("1000 T  f"), " f"); }

TEST_F(SymbolListLineTest, NameMayHoldBlanksToItsEnd) {
  EXPECT_EQ(nameOf("1000 T operator new(unsigned long) const "),
            "operator new(unsigned long) const ");
}

TEST_F(SymbolListLineTest, NameEndsAtATab) { EXPECT_EQ(nameOf("1000 T main \t"), "main "); }

TEST_F(SymbolListLineTest, NameKeepsBytesAbove127) {
  EXPECT_EQ(nameOf("1000 T \xC3\xA4_\xFF"), "\xC3\xA4_\xFF");
}

TEST_F(SymbolListLineTest, NameKeepsNulBytes) {
  EXPECT_EQ(nameOf(std::string("1000 T a\0b", 10)), std::string("a\0b", 3));
}

TEST_F(SymbolListLineTest, TabDirectlyAfterTheSeparatorIsAnEmptyName) {
  EXPECT_THAT(parse("00001000 T \t/src/a.c:1\n" + END),
              ElementsAre(Entry{0x1000, 0xffffffff00000000 - 0x1000, ""}, END_ENTRY));
  EXPECT_EQ(files(), R"([[1,"/src/a.c",[[0,0]]]]}})");
}

TEST_F(SymbolListLineTest, AddressWithoutLeadingZeros) {
  EXPECT_THAT(parse("a T f\n"), ElementsAre(Entry{0xa, 1, "f"}));
}

TEST_F(SymbolListLineTest, AddressInUpperCase) {
  EXPECT_THAT(parse("00ABCDEF T f\n"), ElementsAre(Entry{0xABCDEF, 1, "f"}));
}

TEST_F(SymbolListLineTest, AddressWithAHexadecimalPrefix) {
  EXPECT_THAT(parse("0x1000 T f\n0X2000 T g\n"),
              ElementsAre(Entry{0x1000, 0x1000, "f"}, Entry{0x2000, 1, "g"}));
}

TEST_F(SymbolListLineTest, PrefixWithoutDigits) { EXPECT_EQ(nameOf("0x T f"), std::nullopt); }

TEST_F(SymbolListLineTest, AddressWithMoreZerosThanDigitsOf64Bits) {
  EXPECT_THAT(parse("00000000000000000000000000001000 T f\n"), ElementsAre(Entry{0x1000, 1, "f"}));
}

TEST_F(SymbolListLineTest, LargestAddress) {
  EXPECT_THAT(parse("ffffffffffffffff T f\n"), ElementsAre(Entry{0xFFFFFFFFFFFFFFFF, 1, "f"}));
}

TEST_F(SymbolListLineTest, AddressOver64BitsCannotBeRead) {
  EXPECT_EQ(nameOf("10000000000000000 T f"), std::nullopt);
  EXPECT_EQ(nameOf("1ffffffffffffffff T f"), std::nullopt);
}

TEST_F(SymbolListLineTest, NegativeAddressIsTakenModulo64Bits) {
  EXPECT_THAT(parse("-10 T f\n"), ElementsAre(Entry{0xFFFFFFFFFFFFFFF0, 1, "f"}));
}

TEST_F(SymbolListLineTest, NegativeAddressOver64BitsCannotBeRead) {
  EXPECT_EQ(nameOf("-10000000000000000 T f"), std::nullopt);
}

TEST_F(SymbolListLineTest, AddressWithAPlusSign) {
  EXPECT_THAT(parse("+10 T f\n"), ElementsAre(Entry{0x10, 1, "f"}));
}

TEST_F(SymbolListLineTest, SignAlone) { EXPECT_EQ(nameOf("- T f"), std::nullopt); }
TEST_F(SymbolListLineTest, TwoSigns) { EXPECT_EQ(nameOf("--10 T f"), std::nullopt); }
TEST_F(SymbolListLineTest, SignThenBlank) { EXPECT_EQ(nameOf("- 10 T f"), std::nullopt); }

TEST_F(SymbolListLineTest, AddressThatIsNoNumber) { EXPECT_EQ(nameOf("xyz T f"), std::nullopt); }

TEST_F(SymbolListLineTest, LineOfAMegabyte) {
  const std::string name(1 << 20, 'x');
  EXPECT_EQ(name, nameOf("1000 T " + name));
}

// The line as a text stream reads it, written down a second time.
struct StreamSymbol {
  uint64_t address = 0;
  std::string name;
  std::string sourceFile;
};

std::optional<StreamSymbol> readAsStream(const std::string& line) {
  for (const char* const mark : {"$a", "$d", "$t"}) {
    if (line.find(mark) != std::string::npos) {
      return std::nullopt;
    }
  }
  std::istringstream in(line);
  in >> std::hex;
  StreamSymbol symbol;
  char type = 0;
  if (!(in >> symbol.address) || !(in >> type)) {
    return std::nullopt;
  }
  in.get();
  if (!std::getline(in, symbol.name, '\t') || std::string("TtWw").find(type) == std::string::npos) {
    return std::nullopt;
  }
  std::string rest;
  if (std::getline(in, rest) && rest.find(':') != std::string::npos) {
    symbol.sourceFile = rest.substr(0, rest.find(':'));
  }
  return symbol;
}

TEST_F(SymbolListProcessorTest, RandomLinesAreReadAsTextStreamsReadThem) {
  const std::string alphabet = "01afAFxX+- \tTtWwUd$:./g\v";
  std::mt19937 random(1);
  int symbols = 0;
  for (int round = 0; round < 60000; ++round) {
    std::string line;
    for (std::size_t i = random() % 14; i > 0; --i) {
      line += alphabet[random() % alphabet.size()];
    }
    if (random() % 2 == 0) {  // half of them with a good chance to be symbols
      line = "10" + line.substr(0, 3) + " T " + line;
    }
    makeStoresAnew();
    SymbolTable one;
    SymbolListProcessor parser(&one);
    parser.processLine(line);
    parser.processLine("ffffffffffffffff T end");
    parser.processEOF();
    const std::optional<StreamSymbol> expected = readAsStream(line);
    if (!expected || expected->address == 0xFFFFFFFFFFFFFFFF) {
      ASSERT_EQ(one.items().size(), 1u) << "'" << line << "'";
      continue;
    }
    ++symbols;
    ASSERT_EQ(one.items().size(), 2u) << "'" << line << "'";
    auto& function = dynamic_cast<FunctionInfo&>(*one.items()[0]);
    ASSERT_EQ(expected->address, function.start) << "'" << line << "'";
    ASSERT_EQ(expected->name, function.name) << "'" << line << "'";
    function.refCount = 1;
    const std::string files = jsonObjectText([](kestrel::JsomWriter& writer) {
      kestrel::Singleton<SourceFileStore>::Instance()->writeLegacyJsonObject(writer, true);
    });
    std::ostringstream quoted;
    if (!expected->sourceFile.empty()) {
      kestrel::JsomWriter(&quoted).appendString(expected->sourceFile, false);
    }
    ASSERT_THAT(files,
                testing::HasSubstr("\"data\":[" +
                                   (quoted.str().empty() ? "]" : "[1," + quoted.str() + ",[[")))
        << "'" << line << "'";
  }
  EXPECT_GT(symbols, 10000);
}

}  // namespace

// The whole search, the fallbacks of every platform included, over a scripted platform; the string converters; and
// the platform this build is for.
#include "search_platform.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_file_search.h"
#include "string_conversion.h"
#include "support/conversions.h"

namespace {

std::atomic<std::size_t> g_allocations{0};

void* countedAllocation(std::size_t size) {
  ++g_allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) {
    return memory;
  }
  throw std::bad_alloc();
}

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) { return countedAllocation(size); }
[[gnu::noinline]] void* operator new[](std::size_t size) { return countedAllocation(size); }
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace MD::detail {
namespace {

// Its narrow strings are Latin-1, so that a conversion keeps the number of characters; what Latin-1 lacks has no
// translation. `query` and `write`, where set, replace what the two steps of a conversion answer.
class FakePlatform final : public SearchPlatform {
 public:
  std::map<std::string, std::string> variables;
  std::set<std::string> narrowPaths;
  std::set<std::wstring> widePaths;
  std::wstring programData;
  std::wstring program;
  std::optional<ConversionResult> query;
  std::optional<ConversionResult> write;

  mutable std::vector<std::string> narrowProbes;
  mutable std::vector<std::wstring> wideProbes;
  mutable int folderQueries = 0;

  std::optional<std::string> environmentVariable(const std::string& name) const override {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional<std::string>(found->second);
  }

  bool exists(const std::string& path) const override {
    narrowProbes.push_back(path);
    return narrowPaths.count(path) != 0;
  }

  bool exists(const std::wstring& path) const override {
    wideProbes.push_back(path);
    return widePaths.count(path) != 0;
  }

  std::wstring programDataFolder() const override {
    ++folderQueries;
    return programData;
  }

  std::wstring moduleFolder() const override {
    ++folderQueries;
    return program;
  }

  ConversionResult convert(const char* input, int length, wchar_t* output, int capacity) const override {
    return answer(length, capacity,
                  [&](int i) { output[i] = static_cast<wchar_t>(static_cast<unsigned char>(input[i])); });
  }

  ConversionResult convert(const wchar_t* input, int length, char* output, int capacity) const override {
    if (!scripted(capacity) &&
        std::any_of(input, input + length, [](wchar_t character) { return character > L'\u00ff'; })) {
      return {0, kErrorNoUnicodeTranslation};
    }
    return answer(length, capacity, [&](int i) { output[i] = static_cast<char>(input[i]); });
  }

 private:
  const std::optional<ConversionResult>& scripted(int capacity) const { return capacity == 0 ? query : write; }

  template <class CopyOne>
  ConversionResult answer(int length, int capacity, CopyOne copyOne) const {
    if (scripted(capacity)) {
      return *scripted(capacity);
    }
    for (int i = 0; i < length && i < capacity; ++i) {
      copyOne(i);
    }
    return {length, 0};
  }
};

FileSearchParameter parameter(const std::string& defaultPath) {
  return FileSearchParameter("SEARCH_PATH").default_path(defaultPath);
}

// ---- the configuration search path ----

struct PathCase {
  const char* name;
  const char* path;
  std::vector<std::string> candidates;
};

const std::vector<PathCase>& pathCases() {
  static const std::vector<PathCase> cases = {
      {"OneFolder", "a", {"a/f"}},
      {"FoldersInOrder", "a:b:c", {"a/f", "b/f", "c/f"}},
      {"EmptyPathIsOneEmptyFolder", "", {"/f"}},
      {"EmptyFoldersAreTried", ":a::b:", {"/f", "a/f", "/f", "b/f", "/f"}},
      {"FoldersAreTakenAsWritten", "./a/: b :..\\c", {"./a//f", " b /f", "..\\c/f"}},
      {"SemicolonIsNoSeparator", "a;b", {"a;b/f"}},
  };
  return cases;
}

TEST(SearchPath, TriesEachFolderInOrder) {
  for (const PathCase& row : pathCases()) {
    SCOPED_TRACE(row.name);
    FakePlatform fromVariable;
    fromVariable.variables["SEARCH_PATH"] = row.path;
    EXPECT_EQ(fileSearch(fromVariable, "f", parameter("unused"), nullptr, "C"), "");
    EXPECT_EQ(fromVariable.narrowProbes, row.candidates);

    FakePlatform fromDefault;
    EXPECT_EQ(fileSearch(fromDefault, "f", parameter(row.path), nullptr, "C"), "");
    EXPECT_EQ(fromDefault.narrowProbes, row.candidates);
  }
}

TEST(SearchPath, StopsAtTheFirstHit) {
  FakePlatform platform;
  platform.program = L"C:\\app";
  platform.narrowPaths = {"b/f", "c/f"};
  EXPECT_EQ(fileSearch(platform, "f", parameter("a:b:c"), "sub", "C"), "b/f");
  EXPECT_EQ(platform.narrowProbes, (std::vector<std::string>{"a/f", "b/f"}));
  EXPECT_EQ(platform.folderQueries, 0);
}

TEST(SearchPath, ASetVariableIsTheWholeSearch) {
  for (const char* path : {"a", ""}) {
    SCOPED_TRACE(path);
    FakePlatform platform;
    platform.variables["SEARCH_PATH"] = path;
    platform.programData = L"C:\\data";
    platform.program = L"C:\\app";
    platform.narrowPaths = {"default/f"};
    platform.widePaths = {L"C:\\data\\C\\sub\\etc\\f", L"C:\\app\\etc\\f"};
    EXPECT_EQ(fileSearch(platform, "f", parameter("default"), "sub", "C"), "");
    EXPECT_EQ(platform.folderQueries, 0);
    EXPECT_TRUE(platform.wideProbes.empty());
  }
}

TEST(SearchPath, ANullNameThrowsBeforeAnythingIsTried) {
  FakePlatform platform;
  EXPECT_THROW(fileSearch(platform, nullptr, parameter("a"), nullptr, "C"), NULLStringException);
  EXPECT_TRUE(platform.narrowProbes.empty());
}

// ---- the fallbacks ----

// Every candidate of both fallbacks, in order.
const std::vector<std::wstring>& fallbackCandidates() {
  static const std::vector<std::wstring> candidates = {
      L"C:\\data\\Korvane\\sub\\etc\\message/f.txt",
      L"C:\\data\\Korvane\\sub\\cfg\\message/f.txt",
      L"C:\\data\\Korvane\\sub\\config_latest\\message/f.txt",
      L"C:\\data\\Korvane\\sub\\Config\\message/f.txt",
      L"C:\\data\\Korvane\\sub\\\\message/f.txt",
      L"C:\\app\\etc\\message/f.txt",
      L"C:\\app\\cfg\\message/f.txt",
      L"C:\\app\\config_latest\\message/f.txt",
      L"C:\\app\\Config\\message/f.txt",
      L"C:\\app\\\\message/f.txt",
  };
  return candidates;
}

std::vector<std::wstring> firstCandidates(std::size_t from, std::size_t to) {
  const auto begin = fallbackCandidates().begin();
  return {begin + static_cast<std::ptrdiff_t>(from), begin + static_cast<std::ptrdiff_t>(to)};
}

class Fallback : public testing::Test {
 protected:
  Fallback() {
    m_platform.programData = L"C:\\data";
    m_platform.program = L"C:\\app";
  }

  std::string find(const char* subfolder, const char* company = "Korvane") const {
    return fileSearch(m_platform, "message/f.txt", parameter("a"), subfolder, company);
  }

  FakePlatform m_platform;
};

TEST_F(Fallback, TriesProgramDataAndThenTheProgramsFolder) {
  EXPECT_EQ(find("sub"), "");
  EXPECT_EQ(m_platform.narrowProbes, (std::vector<std::string>{"a/message/f.txt"}));
  EXPECT_EQ(m_platform.wideProbes, firstCandidates(0, 10));
}

TEST_F(Fallback, ReturnsTheFirstHitAsANarrowString) {
  constexpr const char* kFound[] = {
      "C:\\data\\Korvane\\sub\\etc\\message/f.txt",
      "C:\\data\\Korvane\\sub\\cfg\\message/f.txt",
      "C:\\data\\Korvane\\sub\\config_latest\\message/f.txt",
      "C:\\data\\Korvane\\sub\\Config\\message/f.txt",
      "C:\\data\\Korvane\\sub\\\\message/f.txt",
      "C:\\app\\etc\\message/f.txt",
      "C:\\app\\cfg\\message/f.txt",
      "C:\\app\\config_latest\\message/f.txt",
      "C:\\app\\Config\\message/f.txt",
      "C:\\app\\\\message/f.txt",
  };
  for (std::size_t i = 0; i < 10; ++i) {
    SCOPED_TRACE(kFound[i]);
    const std::vector<std::wstring> present = firstCandidates(i, 10);
    m_platform.widePaths = {present.begin(), present.end()};
    m_platform.wideProbes.clear();
    EXPECT_EQ(find("sub"), kFound[i]);
    EXPECT_EQ(m_platform.wideProbes, firstCandidates(0, i + 1));
  }
}

TEST_F(Fallback, WithoutASubfolderProgramDataIsLeftOut) {
  for (const char* subfolder : {static_cast<const char*>(nullptr), ""}) {
    SCOPED_TRACE(subfolder == nullptr ? "null" : "empty");
    m_platform.wideProbes.clear();
    m_platform.folderQueries = 0;
    EXPECT_EQ(find(subfolder, nullptr), "");
    EXPECT_EQ(m_platform.wideProbes, firstCandidates(5, 10));
    EXPECT_EQ(m_platform.folderQueries, 1);
  }
}

TEST_F(Fallback, AProgramDataFolderThatEndsWithABackslashGetsNoOther) {
  m_platform.programData = L"C:\\data\\";
  EXPECT_EQ(find("sub"), "");
  EXPECT_EQ(m_platform.wideProbes, firstCandidates(0, 10));
}

TEST_F(Fallback, TheProgramsFolderIsTakenAsItIs) {
  m_platform.program = L"C:\\";
  EXPECT_EQ(find(nullptr), "");
  EXPECT_EQ(m_platform.wideProbes,
            (std::vector<std::wstring>{L"C:\\\\etc\\message/f.txt", L"C:\\\\cfg\\message/f.txt",
                                       L"C:\\\\config_latest\\message/f.txt", L"C:\\\\Config\\message/f.txt",
                                       L"C:\\\\\\message/f.txt"}));
}

TEST_F(Fallback, AnUnknownFolderSkipsOnlyItsOwnCandidates) {
  m_platform.programData.clear();
  EXPECT_EQ(find("sub"), "");
  EXPECT_EQ(m_platform.wideProbes, firstCandidates(5, 10));

  m_platform.programData = L"C:\\data";
  m_platform.program.clear();
  m_platform.wideProbes.clear();
  EXPECT_EQ(find("sub"), "");
  EXPECT_EQ(m_platform.wideProbes, firstCandidates(0, 5));
}

TEST_F(Fallback, WithoutFoldersNothingIsConverted) {
  m_platform.programData.clear();
  m_platform.program.clear();
  m_platform.query = ConversionResult{0, kErrorInvalidFlags};
  EXPECT_EQ(find("sub", nullptr), "");
  EXPECT_TRUE(m_platform.wideProbes.empty());
}

TEST_F(Fallback, KeepsCharactersOutsideAscii) {
  m_platform.program = L"C:\\caf\u00e9";
  m_platform.widePaths = {L"C:\\caf\u00e9\\cfg\\\u00fc"};
  EXPECT_EQ(fileSearch(m_platform, "\xfc", parameter("a"), nullptr, "C"), "C:\\caf\xe9\\cfg\\\xfc");
}

TEST_F(Fallback, AHitWithoutANarrowFormEndsTheSearchEmpty) {
  m_platform.programData = L"C:\\\u20ac";
  m_platform.widePaths = {L"C:\\\u20ac\\Korvane\\sub\\etc\\message/f.txt", L"C:\\app\\etc\\message/f.txt"};
  EXPECT_EQ(find("sub"), "");
  EXPECT_EQ(m_platform.wideProbes.size(), 1u);
}

TEST_F(Fallback, ConversionFailuresPropagate) {
  EXPECT_THROW(find("sub", nullptr), NULLStringException);

  m_platform.query = ConversionResult{0, 87};
  EXPECT_THROW(find("sub"), OutputLengthException);
  EXPECT_THROW(find(nullptr), OutputLengthException);
  m_platform.query = ConversionResult{0, 1004};
  EXPECT_THROW(find("sub"), ArgumentException);
  EXPECT_THROW(find(nullptr), ArgumentException);
  m_platform.query.reset();
  m_platform.write = ConversionResult{0, 87};
  EXPECT_THROW(find("sub"), ConversionException);
  EXPECT_THROW(find(nullptr), ConversionException);
}

// ---- the converters ----

struct Widening {
  using From = char;
  using To = wchar_t;
};
struct Narrowing {
  using From = wchar_t;
  using To = char;
};

template <class Direction>
class Conversion : public testing::Test {
 protected:
  using Converter = StringConverter<typename Direction::From, typename Direction::To>;

  std::string outcome(const typename Direction::From* text, std::size_t length) const {
    return conversionOutcome<Converter>(m_platform, text, length);
  }

  static std::basic_string<typename Direction::From> letters(std::size_t count) {
    std::basic_string<typename Direction::From> text;
    for (std::size_t i = 0; i < count; ++i) {
      text += static_cast<typename Direction::From>('a' + i % 26);
    }
    return text;
  }

  FakePlatform m_platform;
};

using Directions = testing::Types<Widening, Narrowing>;
TYPED_TEST_SUITE(Conversion, Directions, );

TYPED_TEST(Conversion, NullFails) {
  EXPECT_EQ(this->outcome(nullptr, 0), "NULLStringException: Input string is NULL");
  EXPECT_EQ(this->outcome(nullptr, 3), "NULLStringException: Input string is NULL");
  const typename TypeParam::From* const text = nullptr;
  EXPECT_THROW((typename TestFixture::Converter(this->m_platform, text)), NULLStringException);
}

TYPED_TEST(Conversion, LengthsOf2To31AndMoreFail) {
  // None of the characters after the first is read.
  const typename TypeParam::From text[] = {'a'};
  this->m_platform.query = ConversionResult{0, 87};
  EXPECT_EQ(this->outcome(text, 2147483647u), "OutputLengthException: Could not get output length. Error code: 87");
  EXPECT_EQ(this->outcome(text, 2147483648u), "InputOverflowException: Input string is too long");
  EXPECT_EQ(this->outcome(text, std::numeric_limits<std::size_t>::max()),
            "InputOverflowException: Input string is too long");
}

TYPED_TEST(Conversion, EmptyTextIsEmptyWithoutAskingThePlatform) {
  const typename TypeParam::From text[] = {0};
  this->m_platform.query = ConversionResult{0, 87};
  EXPECT_EQ(this->outcome(text, 0), "0 characters");
  EXPECT_TRUE(typename TestFixture::Converter(this->m_platform, text).view().empty());
}

TYPED_TEST(Conversion, ConvertsUpToTheTerminatorOrTheGivenLength) {
  using From = typename TypeParam::From;
  using To = typename TypeParam::To;
  const From text[] = {'a', 'b', 0, 'c', 0};
  const To expected[] = {'a', 'b', 0, 'c'};
  EXPECT_EQ((typename TestFixture::Converter(this->m_platform, text).view()),
            (std::basic_string_view<To>(expected, 2)));
  EXPECT_EQ((typename TestFixture::Converter(this->m_platform, text, 4).view()),
            (std::basic_string_view<To>(expected, 4)));
}

TYPED_TEST(Conversion, ResultsOfUpTo126CharactersNeedNoHeap) {
  using To = typename TypeParam::To;
  struct Row {
    std::size_t length;
    std::size_t allocations;
  };
  for (const Row& row : {Row{1, 0}, Row{125, 0}, Row{126, 0}, Row{127, 1}, Row{128, 1}, Row{5000, 1}}) {
    SCOPED_TRACE(row.length);
    const auto text = this->letters(row.length);
    const std::basic_string<To> expected(text.begin(), text.end());
    const std::size_t before = g_allocations;
    const typename TestFixture::Converter converter(this->m_platform, text.data(), text.size());
    const std::size_t after = g_allocations;
    EXPECT_EQ(after - before, row.allocations);
    EXPECT_EQ(converter.view(), expected);
  }
}

struct AnswerCase {
  const char* name;
  ConversionResult query;
  ConversionResult write;
  const char* widening;
  const char* narrowing;
};

constexpr AnswerCase kAnswerCases[] = {
    {"BothAgree", {10, 0}, {10, 0}, "10 characters", "10 characters"},
    {"ErrorOfASuccessIsIgnored", {10, 1004}, {10, 1004}, "10 characters", "10 characters"},
    {"QueryUntranslatable", {0, 1113}, {0, 0}, "0 characters", "0 characters"},
    {"QueryInvalidFlags",
     {0, 1004},
     {0, 0},
     "ArgumentException: MultiByteToWideChar: ERROR_INVALID_FLAGS",
     "ArgumentException: WideCharToMultiByte: ERROR_INVALID_FLAGS"},
    {"QueryOtherError",
     {0, 87},
     {0, 0},
     "OutputLengthException: Could not get output length. Error code: 87",
     "OutputLengthException: Could not get output length. Error code: 87"},
    {"QueryLargestErrorCode",
     {0, 4294967295u},
     {0, 0},
     "OutputLengthException: Could not get output length. Error code: 4294967295",
     "OutputLengthException: Could not get output length. Error code: 4294967295"},
    {"WriteUntranslatable", {10, 0}, {0, 1113}, "0 characters", "0 characters"},
    {"WriteUntranslatableOnTheHeap", {200, 0}, {0, 1113}, "0 characters", "0 characters"},
    {"WriteInvalidFlags",
     {10, 0},
     {0, 1004},
     "ArgumentException: MultiByteToWideChar: ERROR_INVALID_FLAGS",
     "ArgumentException: WideCharToMultiByte: ERROR_INVALID_FLAGS"},
    {"WriteOtherError",
     {10, 0},
     {0, 122},
     "ConversionException: String conversion failed. Error code: 122",
     "ConversionException: String conversion failed. Error code: 122"},
    {"WriteShorterThanAnnounced",
     {10, 0},
     {9, 0},
     "ConversionException: String conversion failed. Error code: 0",
     "ConversionException: String conversion failed. Error code: 0"},
    {"WriteLongerThanAnnounced",
     {10, 0},
     {11, 5},
     "ConversionException: String conversion failed. Error code: 5",
     "ConversionException: String conversion failed. Error code: 5"},
};

TYPED_TEST(Conversion, AnswersOfThePlatformDecide) {
  const typename TypeParam::From text[] = {'a', 'b', 'c'};
  for (const AnswerCase& row : kAnswerCases) {
    SCOPED_TRACE(row.name);
    this->m_platform.query = row.query;
    this->m_platform.write = row.write;
    EXPECT_EQ(this->outcome(text, 3), (std::is_same_v<TypeParam, Widening>) ? row.widening : row.narrowing);
  }
}

// ---- the platform of this build ----

TEST(BuiltPlatform, IsOneObject) { EXPECT_EQ(&searchPlatform(), &searchPlatform()); }

TEST(BuiltPlatform, AnUnsetVariableHasNoValue) {
  EXPECT_EQ(searchPlatform().environmentVariable("MD_TEST_VARIABLE_THAT_NOBODY_SETS"), std::nullopt);
}

TEST(BuiltPlatform, TellsWhatExists) {
  const std::filesystem::path folder = std::filesystem::current_path();
  EXPECT_TRUE(searchPlatform().exists(folder.string()));
  EXPECT_TRUE(searchPlatform().exists(folder.wstring()));
  EXPECT_FALSE(searchPlatform().exists((folder / "md_test_absent").string()));
  EXPECT_FALSE(searchPlatform().exists((folder / "md_test_absent").wstring()));
  EXPECT_FALSE(searchPlatform().exists(std::string()));
  EXPECT_FALSE(searchPlatform().exists(std::wstring()));
}

TEST(BuiltPlatform, ConvertsAscii) {
  EXPECT_EQ(WideText(searchPlatform(), "message/f.txt").view(), L"message/f.txt");
  EXPECT_EQ(NarrowText(searchPlatform(), L"C:\\app\\Config").view(), "C:\\app\\Config");
}

#ifndef _WIN32
struct Utf8Case {
  const char* name;
  std::string narrow;
  std::wstring wide;
};

TEST(PosixPlatform, NarrowStringsAreUtf8) {
  const Utf8Case cases[] = {
      {"OneByte", "\x7f", L"\x7f"},
      {"TwoBytes", "\xc2\x80\xdf\xbf", L"\u0080\u07ff"},
      {"ThreeBytes", "\xe0\xa0\x80\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf", L"\u0800\ud7ff\ue000\uffff"},
      {"FourBytes", "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", L"\U00010000\U0010ffff"},
      {"NullCharacter", std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
  };
  for (const Utf8Case& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(WideText(searchPlatform(), row.narrow.data(), row.narrow.size()).view(), row.wide);
    EXPECT_EQ(NarrowText(searchPlatform(), row.wide.data(), row.wide.size()).view(), row.narrow);
  }
}

TEST(PosixPlatform, MalformedUtf8HasNoTranslation) {
  struct Row {
    const char* name;
    std::string text;
  };
  const Row rows[] = {
      {"LoneContinuation", "a\x80"},
      {"OverlongTwoBytes", "\xc0\x80"},
      {"OverlongThreeBytes", "\xe0\x9f\xbf"},
      {"OverlongFourBytes", "\xf0\x8f\xbf\xbf"},
      {"Surrogate", "\xed\xa0\x80"},
      {"BeyondTheLastCharacter", "\xf4\x90\x80\x80"},
      {"InvalidByte", "\xff"},
      {"CutAtTheEnd", "a\xe2\x82"},
      {"CutByAnother", "\xe2\x82z"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const ConversionResult result =
        searchPlatform().convert(row.text.data(), static_cast<int>(row.text.size()), nullptr, 0);
    EXPECT_EQ(result.length, 0);
    EXPECT_EQ(result.error, 1113u);
    EXPECT_EQ(WideText(searchPlatform(), row.text.data(), row.text.size()).view(), L"");
  }
}

TEST(PosixPlatform, WideCharactersOutsideUnicodeHaveNoTranslation) {
  for (const long value : {0xd800L, 0xdfffL, 0x110000L, -1L}) {
    SCOPED_TRACE(value);
    const wchar_t text[] = {L'a', static_cast<wchar_t>(value)};
    const ConversionResult result = searchPlatform().convert(text, 2, nullptr, 0);
    EXPECT_EQ(result.length, 0);
    EXPECT_EQ(result.error, 1113u);
    EXPECT_EQ(NarrowText(searchPlatform(), text, 2).view(), "");
  }
}

TEST(PosixPlatform, ABufferTooShortIsAnErrorAndNotOverrun) {
  wchar_t wide[2] = {L'?', L'?'};
  ConversionResult result = searchPlatform().convert("abc", 3, wide, 2);
  EXPECT_EQ(result.length, 0);
  EXPECT_EQ(result.error, 122u);

  char narrow[3] = {'?', '?', '?'};
  result = searchPlatform().convert(L"a\u20ac", 2, narrow, 3);
  EXPECT_EQ(result.length, 0);
  EXPECT_EQ(result.error, 122u);
}

TEST(PosixPlatform, TheInlineLimitCountsCharactersOfTheResult) {
  const std::string text = std::string(125, 'x') + "\xe2\x82\xac";
  std::size_t before = g_allocations;
  const WideText wide(searchPlatform(), text.data(), text.size());
  std::size_t after = g_allocations;
  EXPECT_EQ(after - before, 0u);
  EXPECT_EQ(wide.view(), std::wstring(125, L'x') + L"\u20ac");

  before = g_allocations;
  const NarrowText narrow(searchPlatform(), wide.view().data(), wide.view().size());
  after = g_allocations;
  EXPECT_EQ(after - before, 1u);
  EXPECT_EQ(narrow.view(), text);
}

TEST(PosixPlatform, KnowsNoFolders) {
  EXPECT_EQ(searchPlatform().programDataFolder(), L"");
  EXPECT_EQ(searchPlatform().moduleFolder(), L"");
}

TEST(PosixPlatform, ReadsTheEnvironment) {
  ASSERT_EQ(setenv("MD_TEST_VARIABLE", "a:b", 1), 0);
  EXPECT_EQ(searchPlatform().environmentVariable("MD_TEST_VARIABLE"), "a:b");
  ASSERT_EQ(setenv("MD_TEST_VARIABLE", "", 1), 0);
  EXPECT_EQ(searchPlatform().environmentVariable("MD_TEST_VARIABLE"), "");
  ASSERT_EQ(unsetenv("MD_TEST_VARIABLE"), 0);
}

TEST(PosixPlatform, FindsAWidePathOutsideAscii) {
  const std::string narrow = testing::TempDir() + "md_test_caf\xc3\xa9";
  { std::ofstream(narrow) << "x"; }
  std::wstring wide(WideText(searchPlatform(), narrow.data(), narrow.size()).view());
  EXPECT_EQ(wide.substr(wide.size() - 4), L"caf\u00e9");
  EXPECT_TRUE(searchPlatform().exists(wide));
  std::filesystem::remove(narrow);
  EXPECT_FALSE(searchPlatform().exists(wide));
}
#endif

}  // namespace
}  // namespace MD::detail

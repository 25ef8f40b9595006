// The search of configuration files over Windows itself: the folders it falls back to, names outside ASCII, and the
// errors of conversions. Built on Windows only; the search's rules are tested everywhere over a scripted platform.
#include "search_platform.h"

#include <cstdlib>

#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <process.h>
#include <windows.h>

#include <gtest/gtest.h>

#include "md/md_fieldmap.h"
#include "md/md_file_search.h"
#include "md/md_message.h"
#include "string_conversion.h"
#include "support/configuration.h"
#include "support/conversions.h"

namespace MD::detail {
namespace {

namespace fs = std::filesystem;

// Narrow texts below are of the code page 1252: 0xE9 is U+00E9, 0xFC is U+00FC, 0x80 is U+20AC.
bool hasCodePage1252() { return GetACP() == 1252; }
#define MD_REQUIRE_CODE_PAGE_1252()                                       \
  if (!hasCodePage1252()) {                                               \
    GTEST_SKIP() << "the ANSI code page is " << GetACP() << ", not 1252"; \
  }

fs::path programFile() { return fs::path(_pgmptr); }

std::string uniqueName() { return "md_test_" + std::to_string(_getpid()) + ".txt"; }

void setVariable(const wchar_t* name, const wchar_t* value) { ASSERT_EQ(_wputenv_s(name, value), 0); }

/// Each test runs in an empty folder with "CONFIG_PATH" unset. What it makes elsewhere has a name of its own and goes
/// away with it, but for folders beside the program, which other tests use at the same time.
class WindowsSearch : public testing::Test {
 protected:
  void SetUp() override { test::ConfigurationFolder::unsetSearchPath(); }
  void TearDown() override {
    std::error_code error;
    for (const fs::path& path : m_made) {
      fs::remove_all(path, error);
    }
  }

  void makeFile(const fs::path& path, const std::string& text = "BID 22 DOUBLE\n") {
    test::ConfigurationFolder::write(path, text);
    ASSERT_TRUE(fs::is_regular_file(path)) << path;
    m_made.push_back(path);
  }

  /// The folder of a company in the program data.
  fs::path companyFolder(const fs::path& company) {
    m_made.push_back(fs::path(GetProgramDataFolder()) / company);
    return m_made.back();
  }

  static std::string find(const std::string& name, const char* subfolder = nullptr, const char* company = "Korvane") {
    return file_search(name.c_str(), CONFIG_PATH, subfolder, company);
  }

  test::ConfigurationFolder m_currentFolder;

 private:
  std::vector<fs::path> m_made;
};

struct FolderCase {
  const wchar_t* folder;
  const char* found;  ///< between the base folder and the name
};

// In the order of the search.
constexpr FolderCase kFolders[] = {
    {L"etc", "\\etc\\"},       {L"cfg", "\\cfg\\"}, {L"config_latest", "\\config_latest\\"},
    {L"Config", "\\Config\\"}, {L"", "\\\\"},
};

// ---- the folder of the program ----

TEST_F(WindowsSearch, TheModuleFolderIsThatOfTheExecutableFile) {
  EXPECT_EQ(GetModuleFolder(), programFile().parent_path().wstring());
}

TEST_F(WindowsSearch, FindsAFileThatIsOnlyInOneFolderOfTheProgram) {
  const fs::path base = programFile().parent_path();
  const std::string name = uniqueName();
  for (const FolderCase& row : kFolders) {
    SCOPED_TRACE(row.found);
    EXPECT_EQ(find(name), "");
    makeFile(base / row.folder / name);
    EXPECT_EQ(find(name), base.string() + row.found + name);
    fs::remove(base / row.folder / name);
  }
}

TEST_F(WindowsSearch, TriesTheFoldersOfTheProgramInOrder) {
  const fs::path base = programFile().parent_path();
  const std::string name = uniqueName();
  for (const FolderCase& row : kFolders) {
    makeFile(base / row.folder / name);
  }
  for (const FolderCase& row : kFolders) {
    SCOPED_TRACE(row.found);
    EXPECT_EQ(find(name), base.string() + row.found + name);
    fs::remove(base / row.folder / name);
  }
  EXPECT_EQ(find(name), "");
}

TEST_F(WindowsSearch, TheSearchPathComesFirstAndRulesOutTheProgramsFolders) {
  const std::string name = uniqueName();
  makeFile(programFile().parent_path() / "cfg" / name);
  makeFile(fs::path("cfg") / name);
  EXPECT_EQ(find(name), "./cfg/" + name);

  fs::remove(fs::path("cfg") / name);
  setVariable(L"CONFIG_PATH", L"nowhere");
  EXPECT_EQ(find(name), "");
}

TEST_F(WindowsSearch, TheNameMayHoldAFolder) {
  const fs::path base = programFile().parent_path();
  const std::string name = uniqueName();
  makeFile(base / "Config" / "message" / name);
  EXPECT_EQ(find("message/" + name), base.string() + "\\Config\\message/" + name);
}

// ---- program data ----

TEST_F(WindowsSearch, TheProgramDataFolderIsTheSystemsOwn) {
  const wchar_t* folder = _wgetenv(L"ProgramData");
  ASSERT_NE(folder, nullptr);
  EXPECT_EQ(GetProgramDataFolder(), folder);
}

TEST_F(WindowsSearch, FindsAFileThatIsOnlyInOneFolderOfTheProgramData) {
  const std::string company = "md_test_company_" + std::to_string(_getpid());
  const fs::path base = companyFolder(company) / "sub";
  const std::string name = uniqueName();
  for (const FolderCase& row : kFolders) {
    SCOPED_TRACE(row.found);
    EXPECT_EQ(find(name, "sub", company.c_str()), "");
    makeFile(base / row.folder / name);
    EXPECT_EQ(find(name, "sub", company.c_str()), base.string() + row.found + name);
    EXPECT_EQ(find(name, "other", company.c_str()), "");
    EXPECT_EQ(find(name, "", company.c_str()), "");
    EXPECT_EQ(find(name, nullptr, company.c_str()), "");
    fs::remove(base / row.folder / name);
  }
}

TEST_F(WindowsSearch, TheProgramDataComeBeforeTheProgramsFolders) {
  const std::string company = "md_test_company_" + std::to_string(_getpid());
  const fs::path data = companyFolder(company) / "sub";
  const std::string name = uniqueName();
  makeFile(programFile().parent_path() / "etc" / name);
  makeFile(data / name);
  EXPECT_EQ(find(name, "sub", company.c_str()), data.string() + "\\\\" + name);
  EXPECT_EQ(find(name), programFile().parent_path().string() + "\\etc\\" + name);
}

// ---- names outside ASCII ----

TEST_F(WindowsSearch, FindsNamesOutsideAsciiOnTheSearchPath) {
  MD_REQUIRE_CODE_PAGE_1252();
  makeFile(L"caf\u00e9/f\u00fcr_10_\u20ac.txt");
  EXPECT_EQ(file_search("f\xfcr_10_\x80.txt", FileSearchParameter("MD_TEST_PATH").default_path("caf\xe9"), nullptr, ""),
            "caf\xe9/f\xfcr_10_\x80.txt");
  setVariable(L"CONFIG_PATH", L"nowhere:caf\u00e9");
  EXPECT_EQ(find("f\xfcr_10_\x80.txt"), "caf\xe9/f\xfcr_10_\x80.txt");
  EXPECT_EQ(find("f\xc3\xbcr_10_\xe2\x82\xac.txt"), "");
}

TEST_F(WindowsSearch, FindsNamesOutsideAsciiInTheProgramsFolders) {
  MD_REQUIRE_CODE_PAGE_1252();
  const fs::path base = programFile().parent_path();
  const std::wstring name = L"caf\u00e9_" + std::to_wstring(_getpid());
  const std::string narrow = "caf\xe9_" + std::to_string(_getpid());
  makeFile(base / "cfg" / name);
  EXPECT_EQ(find(narrow), base.string() + "\\cfg\\" + narrow);
}

TEST_F(WindowsSearch, FindsNamesOutsideAsciiInTheProgramData) {
  MD_REQUIRE_CODE_PAGE_1252();
  const std::wstring company = L"f\u00fcr_" + std::to_wstring(_getpid());
  const std::string narrow = "f\xfcr_" + std::to_string(_getpid());
  makeFile(companyFolder(company) / L"caf\u00e9" / "Config" / L"\u20ac.txt");
  EXPECT_EQ(find("\x80.txt", "caf\xe9", narrow.c_str()),
            fs::path(GetProgramDataFolder()).string() + "\\" + narrow + "\\caf\xe9\\Config\\\x80.txt");
}

TEST_F(WindowsSearch, WidePathsNeedNoCodePage) {
  const std::wstring name = L"\u65e5\u672c_\U0001f4c8.txt";
  EXPECT_FALSE(searchPlatform().exists(name));
  makeFile(name);
  EXPECT_TRUE(searchPlatform().exists(name));
  EXPECT_TRUE(searchPlatform().exists((fs::current_path() / name).wstring()));
}

TEST_F(WindowsSearch, NarrowPathsAreOfTheAnsiCodePage) {
  MD_REQUIRE_CODE_PAGE_1252();
  makeFile(L"caf\u00e9/x");
  EXPECT_TRUE(searchPlatform().exists("caf\xe9"));
  EXPECT_TRUE(searchPlatform().exists("caf\xe9/x"));
  EXPECT_FALSE(searchPlatform().exists("caf\xc3\xa9"));
}

// ---- dictionary files in folders outside ASCII ----

std::uint16_t idOf(const std::string& name) { return MD_FieldMap::instance().nameToId(name); }

std::string errorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "none";
}

TEST_F(WindowsSearch, DictionariesLoadFromFoldersOutsideAscii) {
  MD_REQUIRE_CODE_PAGE_1252();
  makeFile(L"caf\u00e9/\u00fc.txt", "BID 23 DOUBLE\n");
  makeFile(L"caf\u00e9/\u00fc.xml", test::xmlDefinitions(test::xmlEntry("BID", "24", "DOUBLE")));
  MD_FieldMap::reload_text("caf\xe9/\xfc.txt");
  EXPECT_EQ(idOf("BID"), 23);
  MD_FieldMap::reload_xml("caf\xe9/\xfc.xml");
  EXPECT_EQ(idOf("BID"), 24);
}

TEST_F(WindowsSearch, FoldersOutsideAsciiAreNoDefinitionFiles) {
  MD_REQUIRE_CODE_PAGE_1252();
  fs::create_directory(L"caf\u00e9");
  EXPECT_EQ(errorOf([] { MD_FieldMap::reload_text("caf\xe9"); }), "Unable to open file: caf\xe9");
  EXPECT_EQ(errorOf([] { MD_FieldMap::reload_xml("caf\xe9"); }), "Failed to load field def file: caf\xe9");
}

TEST_F(WindowsSearch, TheDefaultLoadAndThePreferenceReadFoldersOutsideAscii) {
  MD_REQUIRE_CODE_PAGE_1252();
  setVariable(L"CONFIG_PATH", L"nowhere:caf\u00e9");
  makeFile(L"caf\u00e9/FieldDefinition.xml", test::xmlDefinitions(test::xmlEntry("BID", "26", "DOUBLE")));
  MD_FieldMap::reload("");
  EXPECT_EQ(idOf("BID"), 26);
  makeFile(L"caf\u00e9/message/field_map.txt", "BID 25 DOUBLE\n");
  MD_FieldMap::reload("");
  EXPECT_EQ(idOf("BID"), 25);

  makeFile(L"caf\u00e9/message/preferred.conf", "6\n");
  const auto message = MD_Message::createPreferred(false);
  ASSERT_NE(message, nullptr);
  EXPECT_EQ(message->getPB(), 6);
}

// A copy of this very program, run with --lookup, ends with the id of the field BID in its dictionary.

constexpr DWORD kNoField = 255;

int lookUp() {
  try {
    return idOf("BID");
  } catch (const std::domain_error&) {
    return kNoField;
  }
}

fs::path copyOfThisProgram(const fs::path& folder) {
  fs::create_directories(folder);
  fs::copy_file(programFile(), folder / "program.exe");
  return folder / "program.exe";
}

DWORD idThatIsFoundBy(const fs::path& program) {
  std::wstring command = L"program.exe --look-up";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (CreateProcessW(program.c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                     &process) == FALSE) {
    ADD_FAILURE() << "not started: " << program;
    return 0;
  }
  DWORD status = 0;
  WaitForSingleObject(process.hProcess, INFINITE);
  GetExitCodeProcess(process.hProcess, &status);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return status;
}

TEST_F(WindowsSearch, AProgramFindsItsDictionaryInItsOwnFolder) {
  const wchar_t* const kBases[] = {L"plain", L"caf\u00e9 f\u00fcr 10 \u20ac"};
  for (const wchar_t* base : kBases) {
    if (std::wstring_view(base) != L"plain" && !hasCodePage1252()) {
      continue;
    }
    const fs::path folder = fs::current_path() / base;
    const fs::path program = copyOfThisProgram(folder);
    EXPECT_EQ(idThatIsFoundBy(program), kNoField) << folder;
    DWORD id = 30;
    for (const FolderCase& row : kFolders) {
      SCOPED_TRACE((folder / row.folder).string());
      makeFile(folder / row.folder / "field_map.txt", "BID " + std::to_string(++id) + " DOUBLE\n");
      EXPECT_EQ(idThatIsFoundBy(program), id);
      fs::remove(folder / row.folder / "field_map.txt");
    }
  }
}

// The C runtime cannot give its own process a variable with an empty value, but a process can be started with one.
TEST_F(WindowsSearch, AnEmptySearchPathRulesOutTheProgramsFolders) {
  const fs::path program = copyOfThisProgram(fs::current_path() / "folder");
  makeFile(fs::current_path() / "folder" / "etc" / "field_map.txt", "BID 30 DOUBLE\n");
  EXPECT_EQ(idThatIsFoundBy(program), 30u);
  ASSERT_NE(SetEnvironmentVariableW(L"CONFIG_PATH", L""), FALSE);
  EXPECT_EQ(idThatIsFoundBy(program), kNoField);
  SetEnvironmentVariableW(L"CONFIG_PATH", nullptr);
}

// ---- conversions ----

TEST(WindowsConversion, IsThatOfTheAnsiCodePage) {
  MD_REQUIRE_CODE_PAGE_1252();
  EXPECT_EQ(WideText(searchPlatform(), "caf\xe9 \x80").view(), L"caf\u00e9 \u20ac");
  EXPECT_EQ(NarrowText(searchPlatform(), L"caf\u00e9 \u20ac").view(), "caf\xe9 \x80");
  const std::string narrow(5000, '\xfc');
  const std::wstring wide(5000, L'\u00fc');
  EXPECT_EQ(WideText(searchPlatform(), narrow.c_str()).view(), wide);
  EXPECT_EQ(NarrowText(searchPlatform(), wide.c_str()).view(), narrow);
}

TEST(WindowsConversion, TellsTheLengthWithoutWriting) {
  const ConversionResult wide = searchPlatform().convert("message", 7, nullptr, 0);
  EXPECT_EQ(wide.length, 7);
  const ConversionResult narrow = searchPlatform().convert(L"message", 7, nullptr, 0);
  EXPECT_EQ(narrow.length, 7);
}

/// Calls Windows as the built platform does, but for what a test gets wrong about it.
class WrongCalls final : public SearchPlatform {
 public:
  std::optional<std::string> environmentVariable(const std::string&) const override { return std::nullopt; }
  bool exists(const std::string&) const override { return false; }
  bool exists(const std::wstring&) const override { return false; }
  std::wstring programDataFolder() const override { return L"C:\\data"; }
  std::wstring moduleFolder() const override { return L"C:\\program"; }
  ConversionResult convert(const char* input, int length, wchar_t* output, int capacity) const override {
    if (flags == 0) {
      return searchPlatform().convert(input, noInput ? 0 : length, output, capacity - (capacity > 0 ? missing : 0));
    }
    const int converted = MultiByteToWideChar(CP_ACP, flags, input, length, output, capacity);
    return {converted, GetLastError()};
  }
  ConversionResult convert(const wchar_t* input, int length, char* output, int capacity) const override {
    if (flags == 0) {
      return searchPlatform().convert(input, noInput ? 0 : length, output, capacity - (capacity > 0 ? missing : 0));
    }
    const int converted = WideCharToMultiByte(CP_ACP, flags, input, length, output, capacity, nullptr, nullptr);
    return {converted, GetLastError()};
  }

  DWORD flags = 0;
  bool noInput = false;
  int missing = 0;
};

TEST(WindowsConversion, NullAndTooLongTextsFail) {
  const SearchPlatform& windows = searchPlatform();
  EXPECT_EQ(conversionOutcome<WideText>(windows, static_cast<const char*>(nullptr)),
            "NULLStringException: Input string is NULL");
  EXPECT_EQ(conversionOutcome<NarrowText>(windows, static_cast<const wchar_t*>(nullptr)),
            "NULLStringException: Input string is NULL");
  const char* const narrow = "a";
  const wchar_t* const wide = L"a";
  EXPECT_EQ(conversionOutcome<WideText>(windows, narrow, std::size_t{2147483648u}),
            "InputOverflowException: Input string is too long");
  EXPECT_EQ(conversionOutcome<NarrowText>(windows, wide, std::size_t{2147483648u}),
            "InputOverflowException: Input string is too long");
}

TEST(WindowsConversion, ErrorsOfTheSystemAreToldApart) {
  const char* const narrow = "message";
  const wchar_t* const wide = L"message";
  WrongCalls windows;
  EXPECT_EQ(conversionOutcome<WideText>(windows, narrow), "7 characters");
  EXPECT_EQ(conversionOutcome<NarrowText>(windows, wide), "7 characters");

  windows.missing = 1;
  EXPECT_EQ(conversionOutcome<WideText>(windows, narrow),
            "ConversionException: String conversion failed. Error code: 122");
  EXPECT_EQ(conversionOutcome<NarrowText>(windows, wide),
            "ConversionException: String conversion failed. Error code: 122");

  windows.noInput = true;
  EXPECT_EQ(conversionOutcome<WideText>(windows, narrow),
            "OutputLengthException: Could not get output length. Error code: 87");
  EXPECT_EQ(conversionOutcome<NarrowText>(windows, wide),
            "OutputLengthException: Could not get output length. Error code: 87");

  windows.flags = 0x40000000;
  EXPECT_EQ(conversionOutcome<WideText>(windows, narrow),
            "ArgumentException: MultiByteToWideChar: ERROR_INVALID_FLAGS");
  EXPECT_EQ(conversionOutcome<NarrowText>(windows, wide),
            "ArgumentException: WideCharToMultiByte: ERROR_INVALID_FLAGS");
}

TEST_F(WindowsSearch, NullNamesThrowOutOfTheSearch) {
  EXPECT_EQ(errorOf([] { file_search(nullptr, CONFIG_PATH, nullptr, "Korvane"); }), "Input string is NULL");
  EXPECT_EQ(errorOf([] { file_search("md_test_absent", CONFIG_PATH, "sub", nullptr); }), "Input string is NULL");
  EXPECT_EQ(errorOf([] { file_search("md_test_absent", CONFIG_PATH, nullptr, nullptr); }), "none");
}

}  // namespace
}  // namespace MD::detail

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--look-up") {
    return MD::detail::lookUp();
  }
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

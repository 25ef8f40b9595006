// file_search() and its parameter against the real environment and file system.
#include "md/md_file_search.h"

#include <cstdlib>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

#include <gtest/gtest.h>

namespace MD {
namespace {

namespace fs = std::filesystem;

void setVariable(const char* name, const char* value) {
#ifdef _WIN32
  ASSERT_EQ(_putenv_s(name, value), 0);
#else
  ASSERT_EQ(setenv(name, value, 1), 0);
#endif
}

void unsetVariable(const char* name) {
#ifdef _WIN32
  ASSERT_EQ(_putenv_s(name, ""), 0);
#else
  ASSERT_EQ(unsetenv(name), 0);
#endif
}

long processId() {
#ifdef _WIN32
  return _getpid();
#else
  return getpid();
#endif
}

void makeFile(const fs::path& path) {
  if (path.has_parent_path()) {
    fs::create_directories(path.parent_path());
  }
  std::ofstream file(path);
  file << "1 2 X\n";
  ASSERT_TRUE(file.good()) << path;
}

// Each test runs in an empty folder of its own, with "CONFIG_PATH" and "MD_TEST_PATH" unset.
class FileSearch : public testing::Test {
 protected:
  void SetUp() override {
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    m_folder = fs::canonical(fs::temp_directory_path()) /
               ("md_file_search_" + std::to_string(processId()) + "_" + test->name());
    fs::remove_all(m_folder);
    fs::create_directories(m_folder);
    m_previousFolder = fs::current_path();
    fs::current_path(m_folder);
    if (const char* value = std::getenv("CONFIG_PATH")) {
      m_previousVariable = value;
    }
    unsetVariable("CONFIG_PATH");
    unsetVariable("MD_TEST_PATH");
  }

  void TearDown() override {
    unsetVariable("MD_TEST_PATH");
    if (m_previousVariable) {
      setVariable("CONFIG_PATH", m_previousVariable->c_str());
    } else {
      unsetVariable("CONFIG_PATH");
    }
    fs::current_path(m_previousFolder);
    fs::remove_all(m_folder);
  }

  static std::string find(const char* name, const FileSearchParameter& param = CONFIG_PATH) {
    return file_search(name, param, nullptr, "Korvane");
  }

  fs::path m_folder;
  fs::path m_previousFolder;
  std::optional<std::string> m_previousVariable;
};

TEST_F(FileSearch, FindsAFileInEtcWhileTheVariableIsUnset) {
  makeFile("etc/field_map.txt");
  EXPECT_EQ(find("field_map.txt"), "./etc/field_map.txt");
}

TEST_F(FileSearch, TriesTheDefaultFoldersInOrder) {
  struct Row {
    const char* file;
    const char* found;
  };
  constexpr Row kRows[] = {
      {"etc/md_test.txt", "./etc/md_test.txt"},
      {"md_test.txt", "./md_test.txt"},
      {"config_latest/md_test.txt", "./config_latest/md_test.txt"},
      {"Config/md_test.txt", "./Config/md_test.txt"},
      {"cfg/md_test.txt", "./cfg/md_test.txt"},
  };
  for (const Row& row : kRows) {
    makeFile(row.file);
  }
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.file);
    EXPECT_EQ(find("md_test.txt"), row.found);
    fs::remove(row.file);
  }
  EXPECT_EQ(find("md_test.txt"), "");
}

TEST_F(FileSearch, TheVariableReplacesTheDefaultPath) {
  makeFile("etc/field_map.txt");
  fs::create_directories("a");
  makeFile("b/field_map.txt");
  setVariable("CONFIG_PATH", "a:b");
  EXPECT_EQ(find("field_map.txt"), "b/field_map.txt");

  makeFile("a/field_map.txt");
  EXPECT_EQ(find("field_map.txt"), "a/field_map.txt");

  fs::remove("a/field_map.txt");
  fs::remove("b/field_map.txt");
  EXPECT_EQ(find("field_map.txt"), "");
}

#ifndef _WIN32  // where the C runtime cannot hold a variable with an empty value
TEST_F(FileSearch, AnEmptyVariableLeavesOnlyTheRootFolder) {
  makeFile("etc/field_map.txt");
  makeFile("field_map.txt");
  setVariable("CONFIG_PATH", "");
  EXPECT_EQ(find("field_map.txt"), "");

  const std::string path = (m_folder / "field_map.txt").string();
  ASSERT_EQ(path[0], '/');
  EXPECT_EQ(find(path.c_str() + 1), path);
}
#endif

TEST_F(FileSearch, AFolderNamedLikeTheFileIsFound) {
  fs::create_directories("etc/field_map.txt");
  makeFile("cfg/field_map.txt");
  EXPECT_EQ(find("field_map.txt"), "./etc/field_map.txt");
}

TEST_F(FileSearch, ASemicolonIsPartOfAFolderName) {
  makeFile("a/field_map.txt");
  makeFile("b/field_map.txt");
  setVariable("CONFIG_PATH", "a;b");
  EXPECT_EQ(find("field_map.txt"), "");

  makeFile("a;b/field_map.txt");
  EXPECT_EQ(find("field_map.txt"), "a;b/field_map.txt");
}

TEST_F(FileSearch, TheNameMayHoldAFolder) {
  makeFile("etc/message/preferred.conf");
  EXPECT_EQ(find("message/preferred.conf"), "./etc/message/preferred.conf");
}

TEST_F(FileSearch, AParameterNamesItsOwnVariableAndDefaultPath) {
  makeFile("first/md_test.txt");
  makeFile("second/md_test.txt");
  makeFile("etc/md_test.txt");
  const FileSearchParameter param = FileSearchParameter("MD_TEST_PATH").default_path("second");
  setVariable("CONFIG_PATH", "etc");
  EXPECT_EQ(find("md_test.txt", param), "second/md_test.txt");

  setVariable("MD_TEST_PATH", "first");
  EXPECT_EQ(find("md_test.txt", param), "first/md_test.txt");
}

TEST_F(FileSearch, NothingFoundIsAnEmptyString) {
  EXPECT_EQ(find("md_test_absent.txt"), "");
  EXPECT_EQ(file_search("md_test_absent.txt", CONFIG_PATH, "message", "Korvane"), "");
  EXPECT_EQ(file_search("md_test_absent.txt", "MD_TEST_PATH", "", "Korvane"), "");
}

TEST_F(FileSearch, ANullNameThrows) {
  makeFile("etc/field_map.txt");
  EXPECT_THROW(file_search(nullptr, CONFIG_PATH, nullptr, "Korvane"), NULLStringException);
}

#ifdef _WIN32
TEST_F(FileSearch, FallsBackToTheFolderOfTheRunningProgram) {
  const fs::path programFolder = GetModuleFolder();
  ASSERT_TRUE(fs::is_directory(programFolder));
  const std::string name = "md_test_" + std::to_string(processId()) + ".txt";
  const fs::path file = programFolder / "Config" / name;
  makeFile(file);
  EXPECT_EQ(find(name.c_str()), programFolder.string() + "\\Config\\" + name);

  setVariable("CONFIG_PATH", "a:b");
  EXPECT_EQ(find(name.c_str()), "");
  fs::remove(file);
}

TEST(SearchFolders, ProgramDataIsAFolder) { EXPECT_TRUE(fs::is_directory(GetProgramDataFolder())); }
#else
TEST(SearchFolders, AreEmptyOffWindows) {
  EXPECT_EQ(GetProgramDataFolder(), L"");
  EXPECT_EQ(GetModuleFolder(), L"");
}
#endif

TEST(FileSearchParameter, IsMadeFromTheNameOfAVariable) {
  const FileSearchParameter fromText("MD_TEST_PATH");
  EXPECT_EQ(fromText.environment_variable(), "MD_TEST_PATH");
  EXPECT_EQ(fromText.default_path(), "");

  const FileSearchParameter fromString(std::string("MD_OTHER_PATH"));
  EXPECT_EQ(fromString.environment_variable(), "MD_OTHER_PATH");
  EXPECT_EQ(fromString.default_path(), "");
}

TEST(FileSearchParameter, CopiesBothStringsOfALiteral) {
  char variable[] = "MD_TEST_PATH";
  char path[] = "a:b";
  const FileSearchParameter::literal_t literal = {variable, path};
  const FileSearchParameter param(literal);
  variable[0] = 'X';
  path[0] = 'X';
  EXPECT_EQ(param.environment_variable(), "MD_TEST_PATH");
  EXPECT_EQ(param.default_path(), "a:b");
}

TEST(FileSearchParameter, DefaultPathReplacesAndChains) {
  FileSearchParameter param("MD_TEST_PATH");
  FileSearchParameter& returned = param.default_path("a").default_path("b:c");
  EXPECT_EQ(&returned, &param);
  EXPECT_EQ(param.default_path(), "b:c");
  EXPECT_EQ(param.environment_variable(), "MD_TEST_PATH");

  const FileSearchParameter& same = param;
  param.default_path(same.default_path());
  EXPECT_EQ(param.default_path(), "b:c");
}

TEST(FileSearchParameter, CopiesAndMovesBothStrings) {
  FileSearchParameter source = FileSearchParameter("MD_TEST_PATH").default_path("a:b");

  FileSearchParameter copy(source);
  EXPECT_EQ(copy.environment_variable(), "MD_TEST_PATH");
  EXPECT_EQ(copy.default_path(), "a:b");

  FileSearchParameter assigned("X");
  assigned = source;
  EXPECT_EQ(assigned.environment_variable(), "MD_TEST_PATH");
  EXPECT_EQ(assigned.default_path(), "a:b");

  source.default_path("changed");
  EXPECT_EQ(copy.default_path(), "a:b");
  EXPECT_EQ(assigned.default_path(), "a:b");

  const FileSearchParameter moved(std::move(copy));
  EXPECT_EQ(moved.environment_variable(), "MD_TEST_PATH");
  EXPECT_EQ(moved.default_path(), "a:b");

  FileSearchParameter moveAssigned("X");
  moveAssigned = std::move(assigned);
  EXPECT_EQ(moveAssigned.environment_variable(), "MD_TEST_PATH");
  EXPECT_EQ(moveAssigned.default_path(), "a:b");
}

TEST(FileSearchParameter, ConfigPathIsTheBuiltInSearch) {
  EXPECT_STREQ(CONFIG_PATH.environmentVariable, "CONFIG_PATH");
  EXPECT_STREQ(CONFIG_PATH.defaultPath, "./etc:.:/home/kvx/config/KVXconfig:./config_latest:./Config:./cfg");
}

TEST(ConversionExceptions, AreRuntimeErrorsThatCarryTheirTexts) {
  static_assert(std::is_base_of_v<std::runtime_error, NULLStringException>);
  static_assert(std::is_base_of_v<std::runtime_error, InputOverflowException>);
  static_assert(std::is_base_of_v<std::runtime_error, ArgumentException>);
  static_assert(std::is_base_of_v<std::runtime_error, OutputLengthException>);
  static_assert(std::is_base_of_v<std::runtime_error, ConversionException>);
  EXPECT_STREQ(NULLStringException().what(), "Input string is NULL");
  EXPECT_STREQ(InputOverflowException().what(), "Input string is too long");
  EXPECT_STREQ(ArgumentException("MultiByteToWideChar").what(), "MultiByteToWideChar: ERROR_INVALID_FLAGS");
  EXPECT_STREQ(OutputLengthException(87).what(), "Could not get output length. Error code: 87");
  EXPECT_STREQ(ConversionException(122).what(), "String conversion failed. Error code: 122");
}

}  // namespace
}  // namespace MD

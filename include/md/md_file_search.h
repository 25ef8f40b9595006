/// @file
/// Finds configuration files by relative name along a search path, and the folders it falls back to.
///
/// Every function here keeps no state and takes no lock; each reads the process environment and the file system, so
/// any thread may call it as long as no other thread changes the environment meanwhile. Results are owned by the
/// caller. A `FileSearchParameter` belongs to one thread at a time, like a string.
#ifndef MD_FILE_SEARCH_H
#define MD_FILE_SEARCH_H

#include <cstdint>

#include <stdexcept>
#include <string>

#include "md/md_api.h"

namespace MD {

/// Where to search: the environment variable that holds the search path, and the path used while it is unset.
/// A search path is a list of directories separated by ':' (never ';').
class MD_API FileSearchParameter {
 public:
  /// The same two items as constant text, so that a parameter can be a static constant. Neither may be null.
  struct literal_t {
    const char* environmentVariable;  ///< its name
    const char* defaultPath;          ///< directories separated by colons
  };

  // The constructors are implicit so that a variable's name or a literal can be handed to file_search() as it is.

  /// Names the environment variable (not null); the default path is empty.
  FileSearchParameter(const char* environmentVariable);  // NOLINT(google-explicit-constructor)
  /// Names the environment variable; the default path is empty.
  FileSearchParameter(std::string environmentVariable);  // NOLINT(google-explicit-constructor)
  /// Copies both strings.
  FileSearchParameter(const literal_t& literal);  // NOLINT(google-explicit-constructor)

  /// Replaces the default path.
  /// @return this parameter, for chaining
  FileSearchParameter& default_path(const std::string& path);

  /// The path used while the variable is unset.
  const std::string& default_path() const noexcept;
  /// The variable's name.
  const std::string& environment_variable() const noexcept;

 private:
  std::string m_environmentVariable;
  std::string m_defaultPath;
};

/// The search of this library's own files: the environment variable "CONFIG_PATH" and its built-in default path.
extern MD_API const FileSearchParameter::literal_t CONFIG_PATH;

/// Finds the first existing file or folder called `name`.
///
/// First each directory of the search path is tried as directory + "/" + `name`. A search path from the environment,
/// even an empty one, is the whole search. Without one, the sub-folders etc, cfg, config_latest and Config and then
/// the folder itself are tried in
/// - the folder `company`\\`subfolder` of the machine-wide program data (only when `subfolder` is not empty), and
/// - the folder of the running program.
/// @param name       file name, may hold a relative path with forward slashes
/// @param param      where to search
/// @param subfolder  may be null
/// @param company    read only when `subfolder` is not empty
/// @return the path as it was tried; empty when nothing was found
/// @throw NULLStringException  `name`, or `company` where it is read, is null
/// @throw InputOverflowException, ArgumentException, OutputLengthException, ConversionException
///        a name or a path that was found could not be converted between narrow and wide characters (fallbacks only)
MD_API std::string file_search(const char* name, const FileSearchParameter& param, const char* subfolder,
                               const char* company);

/// The machine-wide program-data folder; empty when it cannot be told, and always empty off Windows.
MD_API std::wstring GetProgramDataFolder();

/// The folder of the running program's executable file (not of this library); empty when it cannot be told, and always
/// empty off Windows.
MD_API std::wstring GetModuleFolder();

// What a conversion between narrow and wide strings throws. The destructors are defined in the library, which gives
// each class one type description that programs and the library share.

/// A null pointer was to be converted: "Input string is NULL".
class MD_API NULLStringException : public std::runtime_error {
 public:
  NULLStringException();
  ~NULLStringException() override;
};

/// More than 2,147,483,647 characters were to be converted: "Input string is too long".
class MD_API InputOverflowException : public std::runtime_error {
 public:
  InputOverflowException();
  ~InputOverflowException() override;
};

/// The platform refused its flags: `function` + ": ERROR_INVALID_FLAGS".
class MD_API ArgumentException : public std::runtime_error {
 public:
  /// @param function  the platform's, by name
  explicit ArgumentException(const std::string& function);
  ~ArgumentException() override;
};

/// The platform could not tell the result's length: "Could not get output length. Error code: " + code.
class MD_API OutputLengthException : public std::runtime_error {
 public:
  /// @param errorCode  as the platform gave it
  explicit OutputLengthException(std::uint32_t errorCode);
  ~OutputLengthException() override;
};

/// The conversion did not give the length announced: "String conversion failed. Error code: " + code.
class MD_API ConversionException : public std::runtime_error {
 public:
  /// @param errorCode  as the platform gave it
  explicit ConversionException(std::uint32_t errorCode);
  ~ConversionException() override;
};

}  // namespace MD

#endif

/// @file
/// Finds configuration files by relative name on the configuration search path, and in fallback folders.
///
/// The functions keep no state and take no lock. They read the process environment and the file system, so any thread
/// may call them while no other thread changes the environment. The caller owns the results. A `FileSearchParameter`
/// belongs to one thread at a time, like a string.
#ifndef MD_FILE_SEARCH_H
#define MD_FILE_SEARCH_H

#include <cstdint>

#include <stdexcept>
#include <string>

#include "md/md_api.h"

namespace MD {

/// Where to search: the environment variable with the list of directories, and the list used if it is not set. The
/// directories are separated by ':' (never ';').
class MD_API FileSearchParameter {
 public:
  /// The same two items as constant text, so that a parameter can be a static constant. Neither may be null.
  struct literal_t {
    const char* environmentVariable;  ///< name of the variable
    const char* defaultPath;          ///< directories separated by colons
  };

  // The constructors are implicit so that file_search() accepts the name of a variable or a literal directly.

  /// Names the environment variable (not null); the default path is empty.
  FileSearchParameter(const char* environmentVariable);  // NOLINT(google-explicit-constructor)
  /// Names the environment variable; the default path is empty.
  FileSearchParameter(std::string environmentVariable);  // NOLINT(google-explicit-constructor)
  /// Copies both strings.
  FileSearchParameter(const literal_t& literal);  // NOLINT(google-explicit-constructor)

  /// Replaces the default path.
  /// @return this parameter, for chaining
  FileSearchParameter& default_path(const std::string& path);

  /// The path used if the variable is not set.
  const std::string& default_path() const noexcept;
  /// The name of the variable.
  const std::string& environment_variable() const noexcept;

 private:
  std::string m_environmentVariable;
  std::string m_defaultPath;
};

/// The configuration search path of this library: the environment variable "CONFIG_PATH" and its built-in default.
extern MD_API const FileSearchParameter::literal_t CONFIG_PATH;

/// Finds the first existing file or folder called `name`.
///
/// First, each directory of the list is tried as directory + "/" + `name`. If the environment variable is set, even to
/// an empty list, no other folder is searched. Otherwise the sub-folders etc, cfg, config_latest and Config and then
/// the folder itself are tried in
/// - the folder `subfolder` of `company` in the machine-wide program data (only if `subfolder` is not empty), and
/// - the folder of the running program.
/// @param name       file name; may contain a relative path with forward slashes
/// @param param      where to search
/// @param subfolder  may be null
/// @param company    read only if `subfolder` is not empty
/// @return the path as it was tried; empty if nothing was found
/// @throw NULLStringException  `name`, or `company` if it is read, is null
/// @throw InputOverflowException, ArgumentException, OutputLengthException, ConversionException
///        a name or a path that was found could not be converted between narrow and wide characters (fallbacks only)
MD_API std::string file_search(const char* name, const FileSearchParameter& param, const char* subfolder,
                               const char* company);

/// The machine-wide program-data folder; empty if it is unknown, and always empty on other systems than Windows.
MD_API std::wstring GetProgramDataFolder();

/// The folder of the executable file of the running program (not of this library); empty if it is unknown, and always
/// empty on other systems than Windows.
MD_API std::wstring GetModuleFolder();

// Exceptions of conversions between narrow and wide strings. The destructors are defined in the library, so that each
// class has one type description that programs and the library share.

/// A null pointer cannot be converted: "Input string is NULL".
class MD_API NULLStringException : public std::runtime_error {
 public:
  NULLStringException();
  ~NULLStringException() override;
};

/// More than 2,147,483,647 characters cannot be converted: "Input string is too long".
class MD_API InputOverflowException : public std::runtime_error {
 public:
  InputOverflowException();
  ~InputOverflowException() override;
};

/// The platform function refused its flags: `function` + ": ERROR_INVALID_FLAGS".
class MD_API ArgumentException : public std::runtime_error {
 public:
  /// @param function  name of the platform function
  explicit ArgumentException(const std::string& function);
  ~ArgumentException() override;
};

/// The platform did not return the length of the result: "Could not get output length. Error code: " + code.
class MD_API OutputLengthException : public std::runtime_error {
 public:
  /// @param errorCode  as returned by the platform
  explicit OutputLengthException(std::uint32_t errorCode);
  ~OutputLengthException() override;
};

/// The conversion did not return the expected length: "String conversion failed. Error code: " + code.
class MD_API ConversionException : public std::runtime_error {
 public:
  /// @param errorCode  as returned by the platform
  explicit ConversionException(std::uint32_t errorCode);
  ~ConversionException() override;
};

}  // namespace MD

#endif

// What string conversions come to, for tests.
#ifndef MD_TESTS_SUPPORT_CONVERSIONS_H
#define MD_TESTS_SUPPORT_CONVERSIONS_H

#include <string>

#include "string_conversion.h"

namespace MD::detail {

/// The number of characters, or the class and text of the exception.
template <class Converter, class... Arguments>
std::string conversionOutcome(const Arguments&... arguments) {
  try {
    return std::to_string(Converter(arguments...).view().size()) + " characters";
  } catch (const NULLStringException& error) {
    return std::string("NULLStringException: ") + error.what();
  } catch (const InputOverflowException& error) {
    return std::string("InputOverflowException: ") + error.what();
  } catch (const ArgumentException& error) {
    return std::string("ArgumentException: ") + error.what();
  } catch (const OutputLengthException& error) {
    return std::string("OutputLengthException: ") + error.what();
  } catch (const ConversionException& error) {
    return std::string("ConversionException: ") + error.what();
  }
}

}  // namespace MD::detail

#endif

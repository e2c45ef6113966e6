#include "construction/scalar_conversion.h"

#include <sstream>

namespace kerova::conversion_text {

std::string floatRefused(const char* kindName) {
    return std::string("kerova.") + kindName + " does not accept floating-point values.";
}

std::string complexRefused(const char* kindName) {
    return std::string("kerova.") + kindName + " does not accept complex values if 'is_complex' is not set to 'True'.";
}

namespace {
// Numbers print as a default text stream prints them: integers in plain decimal,
// doubles with six significant digits ("1e+300", "300.5", "inf").
template <typename Number>
std::string outOfRangeText(Number value, const char* kindName) {
    std::ostringstream text;
    text << "value (" << value << ") cannot be stored in a variable of type " << kindName << ".";
    return text.str();
}
}  // namespace

std::string outOfRange(int64_t value, const char* kindName) { return outOfRangeText(value, kindName); }
std::string outOfRange(uint64_t value, const char* kindName) { return outOfRangeText(value, kindName); }
std::string outOfRange(double value, const char* kindName) { return outOfRangeText(value, kindName); }

}  // namespace kerova::conversion_text

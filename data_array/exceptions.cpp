#include "data_array/exceptions.h"

namespace kerova::data {

#define KEROVA_DEFINE_ARRAY_EXCEPTION(code, message) template class detail::ArrayException<kerova::Exception, code>;
KEROVA_ARRAY_ERRORS(KEROVA_DEFINE_ARRAY_EXCEPTION)
#undef KEROVA_DEFINE_ARRAY_EXCEPTION

namespace {
// The fixed message of a code, or the error text for the codes that have none.
std::string messageFor(const char* fixed, const std::string& errorText) {
    return fixed != nullptr ? std::string(fixed) : errorText;
}
}  // namespace

void throw_if_error(int code, const std::string& errorText) {
    switch (code) {
        case 0:
            return;
#define KEROVA_THROW_ARRAY_EXCEPTION(n, message) \
    case n:                                      \
        throw detail::ArrayException<Exception, n>(messageFor(message, errorText));
            KEROVA_ARRAY_ERRORS(KEROVA_THROW_ARRAY_EXCEPTION)
#undef KEROVA_THROW_ARRAY_EXCEPTION
        default:
            throw detail::ArrayException<Exception, 20>("System Error.");
    }
}

}  // namespace kerova::data

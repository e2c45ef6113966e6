// Library failure codes to exceptions.
#include <gtest/gtest.h>

#include <string>
#include <typeindex>

#include "data_array/exceptions.h"

using namespace kerova;
using namespace kerova::data;

namespace {

struct ErrorCase {
    int code;
    std::type_index type;
    std::string message;
};

template <int N>
std::type_index typeOf() {
    return typeid(detail::ArrayException<Exception, N>);
}

const std::string kObjectArray =
    "ObjectArray not created. Elements must belong to the same class, or to classes that are part of a "
    "heterogeneous hierarchy.";
const std::string kLayout = "Memory layout mismatch.";
const std::string kSystem = "System Error.";

const ErrorCase kErrorCases[] = {
    {1, typeOf<1>(), "Array index is invalid."}, {2, typeOf<2>(), "String index must be last."},
    {3, typeOf<3>(), "String index not valid for this array."}, {5, typeOf<5>(), "Not enough indices provided."},
    {6, typeOf<6>(), "Too many indices provided."}, {7, typeOf<7>(), "Can only provide one string index."},
    {8, typeOf<8>(), "Data type mismatch."}, {9, typeOf<9>(), "Array type mismatch."},
    {10, typeOf<10>(), "Field does not exist in this struct."}, {11, typeOf<11>(), "Failed to load data."},
    {12, typeOf<12>(), "Failed to resolve symbol."}, {13, typeOf<13>(), "Must specify a class name."},
    {14, typeOf<14>(), "Wrong number of enums supplied."},
    {15, typeOf<15>(), "Input data can only contain ASCII characters."},
    {16, typeOf<16>(), "Can't create a std::string from this data."},
    {17, typeOf<17>(), "Sparse Array can only have two dimensions."},
    {18, typeOf<18>(), "Duplicate field names not allowed."},
    {19, typeOf<19>(), "Not enough memory available to support the request."}, {20, typeOf<20>(), kSystem},
    {21, typeOf<21>(), "Can't index into an empty array."},
    {22, typeOf<22>(), "The specified feature is not supported."}, {23, typeOf<23>(), kLayout},
    {24, typeOf<24>(), kLayout}, {25, typeOf<25>(), kLayout}, {26, typeOf<26>(), "Number of elements exceeds max."},
    {27, typeOf<27>(), kObjectArray}, {35, typeOf<35>(), kObjectArray}, {28, typeOf<28>(), "text from the library"},
    {29, typeOf<29>(), "text from the library"}, {30, typeOf<30>(), "Object not found."},
    {31, typeOf<31>(), "Vector size is wrong for the struct."}, {32, typeOf<32>(), "The property already exists."},
    {33, typeOf<33>(), "Failed to execute class constructor."}, {34, typeOf<34>(), "Handle Object not found."},
    {36, typeOf<36>(), "Invalid object type."}, {37, typeOf<37>(), "Requested class was not found."},
    {38, typeOf<38>(), "Recursion limit exceeded."}, {39, typeOf<39>(), "Property not found."},
    {40, typeOf<40>(), "Invalid property value."}, {41, typeOf<41>(), "Failed to serialize object."},
    {42, typeOf<42>(), "Invalid enumeration."}, {43, typeOf<43>(), "Missing string encountered."},
    {44, typeOf<44>(), "Unsupported operation."}, {45, typeOf<45>(), "Object serialization failed."},
    {46, typeOf<46>(), "Java not supported."}, {47, typeOf<47>(), "Field name is not a valid KEROVA identifier."},
    {51, typeOf<51>(), "Cannot assign a container array to an element of an array created for optimization "},
    // Codes without a class of their own: the gaps, the ends of the range, and below it.
    {4, typeOf<20>(), kSystem}, {48, typeOf<20>(), kSystem}, {50, typeOf<20>(), kSystem},
    {52, typeOf<20>(), kSystem}, {-1, typeOf<20>(), kSystem},
};

class ThrowIfError : public testing::TestWithParam<ErrorCase> {};

TEST_P(ThrowIfError, RaisesTheClassAndMessageOfTheCode) {
    const ErrorCase& expected = GetParam();
    try {
        throw_if_error(expected.code, "text from the library");
        FAIL() << "code " << expected.code << " returned";
    } catch (const Exception& e) {
        EXPECT_EQ(std::type_index(typeid(e)), expected.type);
        EXPECT_EQ(e.what(), expected.message);
        // The same text through the standard base.
        EXPECT_EQ(dynamic_cast<const std::exception&>(e).what(), expected.message);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryCode, ThrowIfError, testing::ValuesIn(kErrorCases),
                         [](const testing::TestParamInfo<ErrorCase>& info) {
                             const int code = info.param.code;
                             return code < 0 ? "minus" + std::to_string(-code) : std::to_string(code);
                         });

TEST(ThrowIfErrorCode, ZeroReturnsAndAnEmptyLibraryTextStaysEmpty) {
    EXPECT_NO_THROW(throw_if_error(0, "ignored"));
    try {
        throw_if_error(28, std::string());
        FAIL() << "code 28 returned";
    } catch (const detail::ArrayException<Exception, 28>& e) {
        EXPECT_STREQ(e.what(), "");
    }
}

}  // namespace

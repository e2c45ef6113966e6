// Library failure codes to exceptions.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "data_array/exceptions.h"

using namespace kerova;
using namespace kerova::data;

namespace {

// The name of the exception class of each code from 0 to 51.
template <int... N>
std::string classOf(int code, std::integer_sequence<int, N...>) {
    static const char* const names[] = {typeid(detail::ArrayException<Exception, N>).name()...};
    return names[code];
}

// The class and message of what throw_if_error raises for a code.
std::pair<std::string, std::string> raised(int code, const std::string& text) {
    try {
        throw_if_error(code, text);
    } catch (const Exception& e) {
        EXPECT_STREQ(dynamic_cast<const std::exception&>(e).what(), e.what()) << "the standard base's text";
        return {typeid(e).name(), e.what()};
    }
    return {"returned", ""};
}

struct ErrorCase {
    int code;
    std::string message;
    int classCode = 0;  // 0: the class of the code itself
};

const std::string kObjectArray =
    "ObjectArray not created. Elements must belong to the same class, or to classes that are part of a "
    "heterogeneous hierarchy.";
const std::string kLayout = "Memory layout mismatch.", kSystem = "System Error.", kText = "text from the library";

const ErrorCase kErrorCases[] = {
    {1, "Array index is invalid."}, {2, "String index must be last."}, {3, "String index not valid for this array."},
    {5, "Not enough indices provided."}, {6, "Too many indices provided."},
    {7, "Can only provide one string index."}, {8, "Data type mismatch."}, {9, "Array type mismatch."},
    {10, "Field does not exist in this struct."}, {11, "Failed to load data."}, {12, "Failed to resolve symbol."},
    {13, "Must specify a class name."}, {14, "Wrong number of enums supplied."},
    {15, "Input data can only contain ASCII characters."}, {16, "Can't create a std::string from this data."},
    {17, "Sparse Array can only have two dimensions."}, {18, "Duplicate field names not allowed."},
    {19, "Not enough memory available to support the request."}, {20, kSystem},
    {21, "Can't index into an empty array."}, {22, "The specified feature is not supported."}, {23, kLayout},
    {24, kLayout}, {25, kLayout}, {26, "Number of elements exceeds max."}, {27, kObjectArray}, {35, kObjectArray},
    {28, kText}, {29, kText}, {30, "Object not found."}, {31, "Vector size is wrong for the struct."},
    {32, "The property already exists."}, {33, "Failed to execute class constructor."},
    {34, "Handle Object not found."}, {36, "Invalid object type."}, {37, "Requested class was not found."},
    {38, "Recursion limit exceeded."}, {39, "Property not found."}, {40, "Invalid property value."},
    {41, "Failed to serialize object."}, {42, "Invalid enumeration."}, {43, "Missing string encountered."},
    {44, "Unsupported operation."}, {45, "Object serialization failed."}, {46, "Java not supported."},
    {47, "Field name is not a valid KEROVA identifier."},
    {51, "Cannot assign a container array to an element of an array created for optimization "},
    // Codes without a class of their own: the gaps, the ends of the range, and below it.
    {4, kSystem, 20}, {48, kSystem, 20}, {49, kSystem, 20}, {50, kSystem, 20}, {52, kSystem, 20}, {-1, kSystem, 20},
};

TEST(ThrowIfError, RaisesTheClassAndMessageOfEachCode) {
    for (const ErrorCase& c : kErrorCases) {
        const std::string expectedClass = classOf(c.classCode != 0 ? c.classCode : c.code,
                                                  std::make_integer_sequence<int, 52>());
        EXPECT_EQ(raised(c.code, kText), std::pair(expectedClass, c.message)) << "code " << c.code;
    }
    EXPECT_EQ(raised(0, kText).first, "returned");
    EXPECT_EQ(raised(28, "").second, "") << "an empty library text stays empty";
}

}  // namespace

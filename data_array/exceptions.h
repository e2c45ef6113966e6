// The exception family of the data layer: one class per library error code, all
// under kerova::Exception, and the translation of an operation's result code.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace kerova {

// Abstract base of every exception the data layer throws.
class Exception {
public:
    virtual ~Exception() = default;
    virtual const char* what() const noexcept = 0;

protected:
    Exception() = default;
    Exception(const Exception&) = default;
    Exception& operator=(const Exception&) = default;
};

namespace data {
namespace detail {

// One distinct type per code N. The message lives here only: the std::exception
// base keeps its own (empty) message, and what() through either base gives the text.
template <typename Base, int N>
class ArrayException : public Base, public std::exception {
public:
    explicit ArrayException(std::string message) : m_message(std::move(message)) {}
    ArrayException(const ArrayException&) = default;
    ArrayException& operator=(const ArrayException&) = default;
    ~ArrayException() override = default;

    const char* what() const noexcept override { return m_message.c_str(); }

private:
    std::string m_message;
};

}  // namespace detail

// Every code that has an exception class of its own, with its message. A null
// message means the error text handed to throw_if_error is the message.
#define KEROVA_ARRAY_ERRORS(X)                                                                   \
    X(1, "Array index is invalid.")                                                              \
    X(2, "String index must be last.")                                                           \
    X(3, "String index not valid for this array.")                                               \
    X(5, "Not enough indices provided.")                                                         \
    X(6, "Too many indices provided.")                                                           \
    X(7, "Can only provide one string index.")                                                   \
    X(8, "Data type mismatch.")                                                                  \
    X(9, "Array type mismatch.")                                                                 \
    X(10, "Field does not exist in this struct.")                                                \
    X(11, "Failed to load data.")                                                                \
    X(12, "Failed to resolve symbol.")                                                           \
    X(13, "Must specify a class name.")                                                          \
    X(14, "Wrong number of enums supplied.")                                                     \
    X(15, "Input data can only contain ASCII characters.")                                       \
    X(16, "Can't create a std::string from this data.")                                          \
    X(17, "Sparse Array can only have two dimensions.")                                          \
    X(18, "Duplicate field names not allowed.")                                                  \
    X(19, "Not enough memory available to support the request.")                                 \
    X(20, "System Error.")                                                                       \
    X(21, "Can't index into an empty array.")                                                    \
    X(22, "The specified feature is not supported.")                                             \
    X(23, "Memory layout mismatch.")                                                             \
    X(24, "Memory layout mismatch.")                                                             \
    X(25, "Memory layout mismatch.")                                                             \
    X(26, "Number of elements exceeds max.")                                                     \
    X(27, "ObjectArray not created. Elements must belong to the same class, or to classes "      \
          "that are part of a heterogeneous hierarchy.")                                         \
    X(28, nullptr)                                                                               \
    X(29, nullptr)                                                                               \
    X(30, "Object not found.")                                                                   \
    X(31, "Vector size is wrong for the struct.")                                                \
    X(32, "The property already exists.")                                                        \
    X(33, "Failed to execute class constructor.")                                                \
    X(34, "Handle Object not found.")                                                            \
    X(35, "ObjectArray not created. Elements must belong to the same class, or to classes "      \
          "that are part of a heterogeneous hierarchy.")                                         \
    X(36, "Invalid object type.")                                                                \
    X(37, "Requested class was not found.")                                                      \
    X(38, "Recursion limit exceeded.")                                                           \
    X(39, "Property not found.")                                                                 \
    X(40, "Invalid property value.")                                                             \
    X(41, "Failed to serialize object.")                                                         \
    X(42, "Invalid enumeration.")                                                                \
    X(43, "Missing string encountered.")                                                         \
    X(44, "Unsupported operation.")                                                              \
    X(45, "Object serialization failed.")                                                        \
    X(46, "Java not supported.")                                                                 \
    X(47, "Field name is not a valid KEROVA identifier.")                                        \
    X(51, "Cannot assign a container array to an element of an array created for optimization ")

// The classes of the family are compiled once, in exceptions.cpp.
#define KEROVA_DECLARE_ARRAY_EXCEPTION(code, message) \
    extern template class detail::ArrayException<kerova::Exception, code>;
KEROVA_ARRAY_ERRORS(KEROVA_DECLARE_ARRAY_EXCEPTION)
#undef KEROVA_DECLARE_ARRAY_EXCEPTION

// Returns on code 0. Otherwise throws ArrayException<Exception, code> with the code's
// message; codes without a class of their own (negative ones included) throw
// ArrayException<Exception, 20> "System Error.". errorText is read for 28 and 29 only.
void throw_if_error(int code, const std::string& errorText);

}  // namespace data
}  // namespace kerova

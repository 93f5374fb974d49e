#pragma once

#include <optional>
#include <string>
#include <utility>

namespace quillane
{

// The outcome of an operation that can fail: a value, or the description of what went wrong.
// Errors cross layers as values; the caller decides what the user sees.
template <class T> class Result
{
public:
    static Result success(T value) { return Result(std::move(value), {}); }
    // code: the errno value behind the failure, where there is one, for callers that must tell
    // a refusal from a missing file.
    static Result failure(std::string error, int code = 0)
    {
        return Result(std::nullopt, std::move(error), code);
    }

    bool ok() const { return m_value.has_value(); }
    explicit operator bool() const { return ok(); }
    const T& value() const { return *m_value; }
    const T& operator*() const { return *m_value; }
    const T* operator->() const { return &*m_value; }
    const std::string& error() const { return m_error; }
    int errorCode() const { return m_code; }

private:
    Result(std::optional<T> value, std::string error, int code = 0)
        : m_value(std::move(value)), m_error(std::move(error)), m_code(code)
    {
    }

    std::optional<T> m_value;
    std::string m_error;
    int m_code = 0;
};

// "what: strerror(errno)" for the usual POSIX failure.
std::string describeErrno(const std::string& what, int error);

} // namespace quillane

#pragma once

#include <stdexcept>
#include <string>

#include "trace/api.h"

/// The exception of the library: a text that is fixed as it is made. Thread-safety: as a
/// `std::runtime_error`.
class ZORN_API CAgtException : public std::runtime_error {
  public:
    /// `what()` is `text`.
    explicit CAgtException(const std::string& text);

    /// `what()` is `text`, "\nError message: " and the system's text for `errorNumber`, an `errno`
    /// value.
    CAgtException(const std::string& text, int errorNumber);

    CAgtException(const CAgtException&) = default;
    CAgtException& operator=(const CAgtException&) = default;
    ~CAgtException() override;
};

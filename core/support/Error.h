#pragma once

#include <stdexcept>
#include <string>

namespace kelvo {

/// Base of every error the core throws. `what()` is the user-facing description, exactly as it
/// is shown and logged; subclasses add the machine-readable case.
class Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A JSON document or member that does not fit the record it is decoded into.
class DecodingError : public Error {
  public:
    using Error::Error;
};

/// A value that cannot be written in the requested form, such as text that is not valid UTF-8
/// where JSON needs it.
class EncodingError : public Error {
  public:
    using Error::Error;
};

/// A file that could not be read, written or moved into place.
class FileError : public Error {
  public:
    using Error::Error;
};

}  // namespace kelvo

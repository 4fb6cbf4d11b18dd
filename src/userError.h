// An error that the user can do something about; its text says what.
#pragma once

#include <stdexcept>

class UserError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Wrong use of the command line.
class UsageError : public UserError {
 public:
  using UserError::UserError;
};

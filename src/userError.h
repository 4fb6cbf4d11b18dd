// Errors that the user can do something about: their texts become messages. Thrown everywhere but in tolquin.exe.
#pragma once

#include <stdexcept>

/// An error in an input, a file or the environment.
class UserError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Incorrect use of the command line.
class UsageError : public UserError {
 public:
  using UserError::UserError;
};

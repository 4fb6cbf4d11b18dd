// Operations on the texts of names and types: words, declarators, scopes.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Takes the next longest run of characters that are not in the set `separators` off the front of `text`; empty when
/// there is none.
std::string_view takeWord(std::string_view& text, std::string_view separators);

/// Appends to `words` every longest run of characters of `text` that are not in the set `separators`.
void split(const std::string& text, const std::string& separators, std::vector<std::string>& words);

/// Turns the declarator `vname` into the bare name: leading stars removed, cut at the first '['. Returns the stars that
/// it adds to the type: one for each leading '*' and one for each '['.
std::string stripStarsAndBrackets(std::string& vname);

/// Sets `str` to the text after the last "::" of `arg` that is not within angle brackets. False, `str` untouched, when
/// there is none.
bool remove_one_scope(const char* arg, std::string& str);

/// Returns the last component of the qualified name `arg`.
std::string remove_all_scopes(const std::string& arg);

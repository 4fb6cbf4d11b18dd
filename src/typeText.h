// Operations on the texts of names and types: words, declarators, scopes. Used by the index, by the parsers of the
// tools' output, and by suite/.
#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Removes the next word, a run of characters that are not in the set `separators`, from the front of `text`, and
/// returns it; empty when there is none.
std::string_view nextWord(std::string_view& text, std::string_view separators);

/// Appends to `words` all words of `text`, runs of characters that are not in the set `separators`.
void split(const std::string& text, const std::string& separators, std::vector<std::string>& words);

/// Reduces the declarator `vname` to the bare name: removes leading stars, and everything from the first '['. Returns
/// the stars to append to the type: one for each leading '*' and each '['.
std::string stripStarsAndBrackets(std::string& vname);

/// Sets `str` to the text after the last "::" of `arg` that is not within angle brackets. False, with `str` unchanged,
/// if there is none.
bool remove_one_scope(const char* arg, std::string& str);

/// Returns the last component of the qualified name `arg`.
std::string remove_all_scopes(const std::string& arg);

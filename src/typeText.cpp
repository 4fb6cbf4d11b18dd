#include "typeText.h"

#include <algorithm>
#include <cstddef>

using std::string;

std::string_view nextWord(std::string_view& text, std::string_view separators) {
  text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
  const std::string_view word = text.substr(0, text.find_first_of(separators));
  text.remove_prefix(word.size());
  return word;
}

void split(const string& text, const string& separators, std::vector<string>& words) {
  const string source = text;  // NOLINT(performance-unnecessary-copy-initialization): it may be one of `words`
  std::string_view rest = source;
  for (auto word = nextWord(rest, separators); !word.empty(); word = nextWord(rest, separators))
    words.emplace_back(word);
}

string stripStarsAndBrackets(string& vname) {
  const std::size_t leading = std::min(vname.find_first_not_of('*'), vname.size());
  vname.erase(0, leading);
  const auto dimensions = std::count(vname.begin(), vname.end(), '[');
  vname.erase(std::min(vname.find('['), vname.size()));
  return string(leading + static_cast<std::size_t>(dimensions), '*');
}

bool remove_one_scope(const char* arg, string& str) {
  const char* last = nullptr;
  int inside = 0;
  for (; arg[0] != '\0' && arg[1] != '\0'; ++arg) {
    if (arg[0] == '<') --inside;
    if (arg[0] == '>') ++inside;
    if (inside == 0 && arg[0] == ':' && arg[1] == ':') last = arg + 2;
  }
  if (last != nullptr) str = string(last);
  return last != nullptr;
}

string remove_all_scopes(const string& arg) {
  string result = arg;
  string rest;
  while (remove_one_scope(result.c_str(), rest)) result = rest;
  return result;
}

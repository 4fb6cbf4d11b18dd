#include "scopes.h"

#include <algorithm>

std::vector<std::string> Scopes::path(Id scope) const {
  std::vector<std::string> names;
  for (; scope != global; scope = scopes_[scope - 1].parent) names.emplace_back(scopes_[scope - 1].name);
  std::reverse(names.begin(), names.end());
  return names;
}

std::string Scopes::prefix(Id scope) const {
  std::string text;
  for (const std::string& name : path(scope)) text += name + "::";
  return text;
}

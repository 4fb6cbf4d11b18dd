#include "debuginfo/warnings.h"

#include <algorithm>

void Warnings::add(std::string_view why, const std::string& what) {
  constexpr std::size_t mostNamed = 10;
  auto reason = std::find_if(reasons_.begin(), reasons_.end(), [why](const Reason& each) { return each.why == why; });
  if (reason == reasons_.end()) reason = reasons_.insert(reason, Reason{std::string(why), {}, 0});
  if (++reason->count <= mostNamed) reason->first += (reason->first.empty() ? "" : ", ") + what;
  if (reason->count == mostNamed + 1) reason->first += ", ...";
}

void Warnings::append(const std::vector<std::string>& sentences) {
  for (const std::string& each : sentences) {
    if (std::find(others_.begin(), others_.end(), each) == others_.end()) others_.push_back(each);
  }
}

std::vector<std::string> Warnings::sentences() const {
  std::vector<std::string> result;
  for (const Reason& each : reasons_) {
    result.push_back(std::to_string(each.count) +
                     (each.count == 1 ? " variable is not listed: " : " variables are not listed: ") + each.first +
                     ": " + each.why);
  }
  result.insert(result.end(), others_.begin(), others_.end());
  return result;
}

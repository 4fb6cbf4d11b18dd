#include "debuginfo/warnings.h"

#include <algorithm>

namespace {

constexpr std::size_t mostNamed = 10;

std::string namedCases(const Warnings::Reason& reason) {
  std::string text;
  for (const std::string& each : reason.first) text += (text.empty() ? "" : ", ") + each;
  return reason.count > reason.first.size() ? text + ", ..." : text;
}

}  // namespace

Warnings::Reason& Warnings::reason(std::string_view why) {
  auto known = std::find_if(reasons_.begin(), reasons_.end(), [why](const Reason& each) { return each.why == why; });
  if (known == reasons_.end()) known = reasons_.insert(known, Reason{std::string(why), {}, 0});
  return *known;
}

void Warnings::add(std::string_view why, const std::string& what) {
  Reason& known = reason(why);
  if (++known.count <= mostNamed) known.first.push_back(what);
}

void Warnings::add(const Reason& other) {
  Reason& known = reason(other.why);
  known.count += other.count;
  for (const std::string& each : other.first) {
    if (known.first.size() < mostNamed) known.first.push_back(each);
  }
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
                     (each.count == 1 ? " variable is not listed: " : " variables are not listed: ") +
                     namedCases(each) + ": " + each.why);
  }
  result.insert(result.end(), others_.begin(), others_.end());
  return result;
}

#include "frontend/views/html.h"

#include <fcntl.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "frontend/outputFiles.h"
#include "frontend/texts.h"
#include "frontend/views/pageData.h"
#include "frontend/views/reportTemplate.h"
#include "src/io.h"
#include "src/userError.h"

namespace {

// Placeholders in the template, each of which occurs once.
constexpr std::string_view titleMark = "@TITLE@";
constexpr std::string_view dataMark = "@DATA@";

std::string deflated(const std::string& bytes) {
  constexpr int level = 5;  // the default, 6, takes 50 % longer and saves one percent
  uLongf size = compressBound(bytes.size());
  std::string result(size, '\0');
  const int status = compress2(reinterpret_cast<Bytef*>(result.data()), &size,
                               reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), level);
  if (status != Z_OK) throw UserError("cannot compress the page: not enough memory");
  result.resize(size);
  return result;
}

// RFC 4648, section 4.
void appendBase64(std::string& text, std::string_view bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 3; ++i)
      bits = bits << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0);
    for (std::size_t i = 0; i < 4; ++i) text += i <= bytes.size() ? digits[bits >> (18 - 6 * i) & 0x3f] : '=';
  }
}

std::string asHtml(std::string_view text) {
  std::string html;
  for (const char c : text) {
    const std::string_view replaced = c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '>' ? "&gt;" : "";
    if (replaced.empty()) html += c;
    html += replaced;
  }
  return html;
}

bool isAddressCharacter(char c) { return c > ' ' && c <= '~'; }

// `url` without its scheme and host; empty when it does not have an allowed scheme and a host.
std::string_view afterHost(std::string_view url) {
  for (const std::string_view scheme : {"http://", "https://", "vscode://"}) {
    if (!url.starts_with(scheme)) continue;
    const std::size_t end = url.find_first_of("/?#{}\\", scheme.size());
    if (end == std::string_view::npos || end == scheme.size()) return {};
    return url.substr(end);
  }
  return {};
}

bool hasOtherBraces(std::string url) {
  for (const std::string_view mark : {"{file}", "{line}"}) {
    for (std::size_t at = 0; (at = url.find(mark)) != std::string::npos;) url.erase(at, mark.size());
  }
  return url.find_first_of("{}") != std::string::npos;
}

}  // namespace

void checkPage(const std::string& path) {
  const UniqueFd file = openFile(regularFile(path).c_str(), O_RDONLY);
  if (!file && errno == ENOENT) return;
  char buffer[256];
  const ssize_t count = file ? readRetrying(file.get(), buffer, sizeof buffer) : -1;
  if (count < 0) throw UserError(path + ": cannot be read: " + std::strerror(errno));
  const std::string_view begin(buffer, static_cast<std::size_t>(count));
  const bool isPage = begin.starts_with("<!DOCTYPE html>") && begin.find("tolquin report") != std::string_view::npos;
  if (!begin.empty() && !isPage) throw UserError(path + ": is not a page of tolquin report, and is not replaced");
}

void checkSourceUrl(std::string_view url) {
  const std::string_view path = afterHost(url);
  const bool isAddress =
      !path.empty() && path.find_first_of("/?#") == 0 && std::all_of(url.begin(), url.end(), isAddressCharacter);
  if (isAddress && path.find("{file}") != std::string_view::npos && !hasOtherBraces(std::string(url))) return;
  throw UsageError(
      "--source-url \"" + std::string(url) +
      "\": expected http://, https:// or vscode://, a host, and a path with {file} and optionally {line}, such as "
      "https://example.org/prog/blob/main/{file}#L{line}");
}

std::string makePage(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
                     const PageOptions& options) {
  const std::size_t title = reportTemplate.find(titleMark);
  const std::size_t data = reportTemplate.find(dataMark, title);
  std::string page(reportTemplate.substr(0, title));
  page += asHtml(shownText(options.title));
  page += reportTemplate.substr(title + titleMark.size(), data - title - titleMark.size());
  appendBase64(page, deflated(pageData(programs, rows, options)));
  return page += reportTemplate.substr(data + dataMark.size());
}

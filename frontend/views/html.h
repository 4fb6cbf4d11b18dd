// The page: a program's variables to look at in a browser, in one file that needs nothing else.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"

/// What a page says besides its variables.
struct PageOptions {
  std::string title;
  std::string sourceUrl;           ///< where places lead, as checkSourceUrl takes it; empty: nowhere
  std::vector<std::string> notes;  ///< what is missing from the page, a sentence each
  bool isWhole = true;             ///< whether all variables of the programs are on it
};

/// Throws UserError when the file `path` is there and is neither empty nor a page of makePage.
void checkPage(const std::string& path);

/// Throws UsageError unless `url` is an address of http, https or vscode with {file}, and perhaps {line}, after its
/// host: a file's name must not decide which machine is asked.
void checkSourceUrl(std::string_view url);

/// The page with `rows`, which are variables of `programs` in their order: frontend/report.html with the data in it.
std::string makePage(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
                     const PageOptions& options);

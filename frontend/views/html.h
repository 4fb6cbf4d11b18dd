// Builds the page of `report`: one self-contained HTML file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "frontend/fields.h"

/// The contents of a page other than its variables.
struct PageOptions {
  std::string title;
  std::string sourceUrl;           ///< link target of source locations, see checkSourceUrl; empty: no links
  std::vector<std::string> notes;  ///< what is missing from the page, one sentence each
  bool isWhole = true;             ///< whether all variables of the programs are on it
};

/// Throws UserError when the file `path` exists and is neither empty nor a page of makePage.
void checkPage(const std::string& path);

/// Throws UsageError unless `url` is an http, https or vscode URL with {file}, and optionally {line}, after its host,
/// so that the name of a file cannot influence which host is contacted.
void checkSourceUrl(std::string_view url);

/// Inserts `rows`, variables of `programs` in their order, into the template frontend/report.html. Returns the page.
std::string makePage(const std::vector<const Inventory*>& programs, const std::vector<Row>& rows,
                     const PageOptions& options);

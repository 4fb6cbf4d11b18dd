// The input of the views: rows of values in columns.
#pragma once

#include <cstddef>
#include <vector>

#include "frontend/fields.h"

/// Rows that a view writes.
class Listing {
 public:
  explicit Listing(std::vector<Column> columns) : columns_(std::move(columns)) {}
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;
  virtual ~Listing() = default;

  const std::vector<Column>& columns() const { return columns_; }
  /// Number of rows.
  virtual std::size_t size() const = 0;
  /// The value in row `row` and column `column`, counted from 0.
  virtual Value value(std::size_t row, std::size_t column) const = 0;

 private:
  std::vector<Column> columns_;
};

/// A listing of `records`, with `fields` as columns. Refers to both.
template <typename Record>
class RecordListing : public Listing {
 public:
  RecordListing(const std::vector<Record>& records, const std::vector<Field<Record>>& fields)
      : Listing({fields.begin(), fields.end()}), records_(records), fields_(fields) {}

  std::size_t size() const override { return records_.size(); }
  Value value(std::size_t row, std::size_t column) const override { return fields_[column].get(records_[row]); }

 private:
  const std::vector<Record>& records_;
  const std::vector<Field<Record>>& fields_;
};

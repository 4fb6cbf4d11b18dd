#include "debuginfo/location.h"

#include <dwarf.h>

#include <algorithm>

namespace {

using Kind = Location::Kind;

// Evaluates an expression operation by operation, as far as that is possible without running the program.
class Evaluation {
 public:
  Evaluation(ByteCursor cursor, const DebugFile& file, const Unit& unit, const FormSizes& sizes)
      : cursor_(cursor), file_(file), unit_(unit), sizes_(sizes) {}

  Location run() {
    while (!cursor_.atEnd() && !unreadable_) step(cursor_.byte());
    if (cursor_.failed() || unreadable_) return {Kind::Unreadable};
    return hasPieces_ ? pieces_ : place();
  }

 private:
  // The location that the operations since the last piece describe.
  Location place() const {
    if (narrowed_) return {Kind::Memory, *narrowed_, *narrowed_, true};
    if (isAddress_) return {isThreadLocal_ ? Kind::ThreadLocal : Kind::Memory, value_, base_};
    return {isComputed_ ? Kind::Computed : Kind::None, value_, base_};
  }

  void step(unsigned operation) {
    switch (operation) {
      case DW_OP_addr:
        return setAddress(cursor_.fixed(sizes_.address));
      case DW_OP_addrx:
      case DW_OP_GNU_addr_index:
        return setAddress(indexedAddress(cursor_.leb()));
      case DW_OP_constx:
      case DW_OP_GNU_const_index:
        return setConstant(indexedAddress(cursor_.leb()));
      case DW_OP_const4u:
        return setConstant(cursor_.fixed(4));
      case DW_OP_const8u:
        return setConstant(cursor_.fixed(8));
      case DW_OP_constu:
        return isAddress_ ? setOffset(cursor_.leb()) : setConstant(cursor_.leb());
      case DW_OP_plus:
        value_ += offset_;
        return;
      case DW_OP_plus_uconst:
        value_ += cursor_.leb();
        return;
      case DW_OP_form_tls_address:
      case DW_OP_GNU_push_tls_address:
        isAddress_ = isThreadLocal_ = hasValue_;
        return;
      case DW_OP_piece:
        return endPiece(cursor_.leb());
      case DW_OP_nop:
        return;
      case DW_OP_stack_value:
        return endAsValue();
      case DW_OP_deref:
        return dereference(operation, sizes_.address);
      case DW_OP_deref_size:
        return dereference(operation, ByteCursor(cursor_).byte());
      default:
        compute(operation);
    }
  }

  // The expression is the value of the variable, not its location.
  void endAsValue() {
    narrowed_ = source_;
    isAddress_ = isComputed_ = false;
  }

  void dereference(unsigned operation, std::uint64_t bytes) {
    if (isAddress_ && !isThreadLocal_) source_ = value_;
    sourceBytes_ = bytes;
    compute(operation);
  }

  // An operation after which the address is no longer known.
  void compute(unsigned operation) {
    skipOperands(operation);
    isComputed_ = isComputed_ || isAddress_;
    isAddress_ = false;
  }

  void skipOperands(unsigned operation) {
    if ((operation >= DW_OP_lit0 && operation <= DW_OP_reg31) || (operation >= DW_OP_dup && operation <= DW_OP_ne)) {
      if (operation == DW_OP_pick) cursor_.skip(1);
      if (operation == DW_OP_bra) cursor_.skip(2);
      return;
    }
    if (operation >= DW_OP_breg0 && operation <= DW_OP_breg31) operation = DW_OP_fbreg;
    switch (operation) {
      case DW_OP_deref:
      case DW_OP_call_frame_cfa:
        return;
      case DW_OP_const1u:
      case DW_OP_const1s:
      case DW_OP_deref_size:
        return cursor_.skip(1);
      case DW_OP_const2u:
      case DW_OP_const2s:
      case DW_OP_skip:
        return cursor_.skip(2);
      case DW_OP_const4s:
        return cursor_.skip(4);
      case DW_OP_const8s:
        return cursor_.skip(8);
      case DW_OP_bregx:
        cursor_.leb();
        [[fallthrough]];
      case DW_OP_consts:
      case DW_OP_fbreg:
      case DW_OP_regx:
        cursor_.leb();
        return;
      case DW_OP_implicit_value:
        return cursor_.skip(cursor_.leb());
      default:
        // An unknown operation, or one with complex operands: the rest cannot be decoded.
        unreadable_ = isComputed_ || isAddress_ || hasPieces_;
        cursor_.skip(cursor_.left());
    }
  }

  void setAddress(std::uint64_t address) {
    // A second address means that the location is computed from several values.
    source_.reset();
    isComputed_ = isComputed_ || hasValue_;
    value_ = base_ = address;
    isAddress_ = !isComputed_;
    hasValue_ = true;
  }

  // An entry of the unit's address table, which holds constants too.
  std::uint64_t indexedAddress(std::uint64_t index) {
    const auto found = file_.indexedAddress(unit_, index);
    if (!found) unreadable_ = true;
    return found.value_or(0);
  }

  void setConstant(std::uint64_t value) {
    value_ = base_ = value;
    hasValue_ = true;
    isAddress_ = false;
  }
  void setOffset(std::uint64_t value) { offset_ = value; }

  void endPiece(std::uint64_t size) {
    const Location piece = place();
    hasPieces_ = true;
    hasValue_ = isAddress_ = isThreadLocal_ = isComputed_ = false;
    source_.reset();
    narrowed_.reset();
    if (piece.kind != Kind::Memory && piece.kind != Kind::ThreadLocal) return;
    if (!pieces_.bytes) {
      pieces_ = piece;
      pieces_.bytes = 0;
    } else if (piece.kind != pieces_.kind || piece.address != end_) {
      pieces_.isApart = true;
    }
    const std::uint64_t bytes = piece.isNarrowed ? std::min<std::uint64_t>(size, sourceBytes_) : size;
    pieces_.isNarrowed = pieces_.isNarrowed || piece.isNarrowed;
    *pieces_.bytes += bytes;
    end_ = piece.address + bytes;
  }

  ByteCursor cursor_;
  const DebugFile& file_;
  const Unit& unit_;
  const FormSizes& sizes_;
  std::uint64_t value_ = 0, base_ = 0, offset_ = 0;
  bool hasValue_ = false, isAddress_ = false, isThreadLocal_ = false;
  bool isComputed_ = false, unreadable_ = false;
  std::optional<std::uint64_t> source_, narrowed_;  // address from which the value is computed
  std::uint64_t sourceBytes_ = 0;                   // number of bytes read there
  bool hasPieces_ = false;
  Location pieces_;        // the pieces so far that are in memory, combined
  std::uint64_t end_ = 0;  // end address of the last of them
};

}  // namespace

Location evaluate(ByteCursor cursor, const DebugFile& file, const Unit& unit, const FormSizes& sizes) {
  return Evaluation(cursor, file, unit, sizes).run();
}

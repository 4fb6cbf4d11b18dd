// Who owes whom in a conversation whose replies cannot be told apart: replies to requests that were given up may still
// come, and have to be counted off before a reply is believed. Shared by the two session classes.
#pragma once

#include <chrono>

#include "childProcess.h"
#include "toolSession.h"

class ReplyDebt {
 public:
  /// `patience`: how long one wait lasts. After `maxTimeouts` waits in vain in a row the tool is taken for mute: waits
  /// last only `pieceEndPause` until it is heard again.
  ReplyDebt(Clock::duration patience, int maxTimeouts) : patience_(patience), maxTimeouts_(maxTimeouts) {}

  /// A new child owes nothing.
  void clear() { *this = ReplyDebt(patience_, maxTimeouts_); }

  /// Whether replies to requests given up are still to come.
  bool owes() const { return owed_ > 0; }

  /// The end of a wait, or of a silence, that begins now.
  Deadline waitEnd() const { return Clock::now() + (mute() ? Clock::duration(pieceEndPause) : patience_); }

  /// To be called at the beginning of a wait.
  void beginWait() { answered_ = false; }

  /// The tool is not mute. Returns whether it was taken for that.
  bool heard() {
    const bool wasMute = mute();
    timeouts_ = 0;
    return wasMute;
  }

  /// Counts one reply. True when it belongs to the request at hand, false when it was owed.
  bool countReply() {
    answered_ = true;
    if (owed_ > 0) {
      --owed_;
      return false;
    }
    strikes_ = 0;
    return true;
  }

  /// A wait for `replies` of them was in vain; they are owed from now on. True when the tool did answer in this wait
  /// and in an earlier one, but the request at hand in neither: then it has lost a reply, nobody knows any more to
  /// which request the next one belongs, and only a new child can be trusted. One such wait alone may be that of a slow
  /// tool.
  [[nodiscard]] bool giveUp(unsigned replies) {
    owed_ += replies;
    ++timeouts_;
    if (answered_) ++strikes_;
    return strikes_ == maxStrikes;
  }

  /// The tool owes `replies`, and is taken for mute from the beginning.
  void startMute(unsigned replies) {
    owed_ = replies;
    timeouts_ = maxTimeouts_;
  }

 private:
  static constexpr int maxStrikes = 2;

  bool mute() const { return timeouts_ >= maxTimeouts_; }

  Clock::duration patience_;
  int maxTimeouts_;
  unsigned long owed_ = 0;
  int timeouts_ = 0;  // waits in vain since the tool was last heard
  int strikes_ = 0;   // waits in which it answered, but not the request at hand
  bool answered_ = false;
};

// What every program sets up at its start, and what its children must not inherit of that.
#pragma once

/// Sets up a process at its start: debugging information is looked for on this machine only (a download could hang, or
/// be for another program); exceeding the file size limit is a write error instead of a deadly signal; descriptors 0 to
/// 2 are open.
void setUpProcess();

/// Restores, in a child before exec, the signals that setUpProcess ignores.
void restoreSignals();

// Checks of the sink's protocol handling that need no network: the bench
// runs them before it trusts the sink's counts.
#ifndef SMTP_SINK_SINKSELFTEST_H
#define SMTP_SINK_SINKSELFTEST_H

namespace sink {

/// Runs every case, prints the failures on stderr and returns their number.
int runSelfTest();

} // namespace sink

#endif

// The headless host as a fuzz target wants it: its messages, log and bars go nowhere, so the
// fuzzer's own output (and the sanitizers') stays readable. Call once, before the first input.
#pragma once

#include <iostream>
#include <sstream>

#include "host/host.h"

inline void QuietHost() {
  static std::ostringstream sink;
  std::cerr.rdbuf(sink.rdbuf());
  std::cout.rdbuf(sink.rdbuf());
  Zyra::rt::Host::Get().SetQuiet(true);
}

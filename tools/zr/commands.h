// The commands of zr, on the public C interface only. Each returns the
// process exit status: 0 done, 1 the library or a file failed, 2 bad usage.
#pragma once

#include "cli.h"

namespace zrtool {

// Plugs the simulated instruments and their signal scene in; also picks
// the data folder. Runs before every command.
int prepareSession(const Invocation& inv);

int runList(const Invocation& inv);
int runInfo(const Invocation& inv);
int runSweep(const Invocation& inv);
int runIQ(const Invocation& inv);
int runAudio(const Invocation& inv);
int runVrt(const Invocation& inv);
int runVersion(const Invocation& inv);

}  // namespace zrtool

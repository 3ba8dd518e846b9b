// Pango and GLib end the process when an allocation or a thread fails, where the rest of the program
// reports a shortfall and leaves every file as it was. Under a memory limit, text is therefore drawn
// first in a forked copy of the process, which either manages or dies in place of the real run.
#pragma once

#include <functional>

// Whether draw() completes in a copy of this process (always true without a memory limit, where the
// copy would tell nothing). The copy writes nothing to standard output or standard error.
bool drawsWithinMemoryLimit(const std::function<void()>& draw);

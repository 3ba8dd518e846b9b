// Placeholder definitions; replaced by the compressed-line loop.
#include "PatternWrapper.h"
bool PatternSpec::run_body(int, int, int, std::vector<std::pair<int, int>>&, TovaKelmPatternFile&) { return true; }

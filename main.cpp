#include "PatternRender.h"

int main(int, char**) { return 1; }

#include "launch/launch_sequence.h"

int main() { return korvane::RunLaunchSequence(); }

// From the arguments of `dovrel` to one of its commands.
#pragma once

/// Runs the command that the arguments name and returns the exit status of the program. Lets no
/// exception out.
int runCommandLine(int argc, char** argv);

#pragma once

// Opens something harmless as standard input, output and error where the program was started
// without them, so that no package and no device becomes one of them and is written to. What is
// opened refuses to be used, as a closed file would. Before anything else.
void holdStandardFiles();

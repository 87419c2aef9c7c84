#pragma once

// Opens something harmless as standard input, output and error where the program was started
// without them, so that no package and no device becomes one of them and is written to. What is
// opened refuses to be used, as a closed file would. Before anything else.
void holdStandardFiles();

// What modules and libraries print on standard output by themselves is no result. From now on it
// goes to standard error where it is to be shown, and else nowhere. Only on Windows, where the
// installation of a driver prints, is there something to do.
void divertPrinting(bool shown);

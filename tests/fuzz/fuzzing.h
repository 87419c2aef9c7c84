#pragma once

#include <QString>

#include <vector>

// What every fuzz target does first, and how it says that something is wrong.

// Stops the run, and so makes libFuzzer keep the input, unless the condition holds.
void require(bool holds, const char *what);

// Makes the Qt application object, silences the program's logs and notes which error texts, with
// "%1" for what varies, the target may see: any other text is a failure.
//
// With CAPSO_FUZZ_REACH_ALL set in the environment, a run that ends without having seen each of
// them is a failure as well. That is how a corpus is shown to reach every error of its parser.
void startFuzzing(const std::vector<const char *> &knownTexts);

// The text must be one of the known ones.
void requireKnownText(const QString &text);

#pragma once

#include <QByteArray>

#include <functional>

// Standard output and standard error. A source for each system.

// By their numbers, which mean the same everywhere.
constexpr int StandardOutput = 1;
constexpr int StandardError = 2;

// Writes all of the text, which is UTF-8, and waits until it is taken. Returns 0, or the system's
// code of what has failed. Any thread.
int writeAll(int file, const QByteArray &text);
// Whether such a code means that the reader has gone, who will not miss the rest.
bool meansGoneReader(int code);
// Whether the reader of a pipe has gone. Where the system does not tell before something is
// written: false.
bool hasLostReader(int file);

// Whether it is a terminal on which a line can be written anew, in colour.
bool isCapableTerminal(int file);
// Of the terminal that standard error is, in characters.
int terminalWidth();

// Runs the work on a thread that no signal interrupts. False, and nothing is run, where the system
// gives no thread.
bool startUninterrupted(const std::function<void()> &work);

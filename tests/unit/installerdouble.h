#pragma once

#include <QStringList>

#include <deque>

// Stands in for usb::install_driver at the link: writes down each call and answers from a script.
namespace installer {

void reset();
// Answers of successive calls; then -1, which is what a platform without an installer gives.
void answer(std::deque<int> results);
// "e5c1 3601 0 composite null": ids, interface, composite or single, the description or null.
QStringList calls();

} // namespace installer

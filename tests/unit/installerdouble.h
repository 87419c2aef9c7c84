#pragma once

#include <QStringList>

#include <deque>

// Stands in for the platform's driver installer at the link: writes down each call and answers from
// a script.
namespace installer {

void reset();
// Answers of successive calls; then -1, which is what a platform without an installer gives.
void answer(std::deque<int> results);
// Whether the platform is one that has an installer; reset() says that it is not.
void existsOnThisPlatform(bool exists);
// "e5c1 3601 0 composite null": ids, interface, composite or single, the description or null.
QStringList calls();

} // namespace installer

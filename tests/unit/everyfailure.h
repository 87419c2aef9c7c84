#pragma once

#include <QtTest>

// Each call that libusb allows to fail fails once: `attempt(n)` lets the n-th do so, none for -1,
// and returns how many there were (ScriptedUsb::fallibleCalls()), which is so many at least.
template<typename Attempt> void failEachCallOnce(const Attempt &attempt, int atLeast)
{
    const int calls = attempt(-1);
    QVERIFY2(calls >= atLeast, qPrintable(QString::number(calls)));
    for (int failing = 0; failing < calls; ++failing) {
        QVERIFY(attempt(failing) > failing);
    }
}

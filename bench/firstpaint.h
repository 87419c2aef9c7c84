#pragma once

#include <QApplication>
#include <QEvent>
#include <QTimer>
#include <QWidget>

#include <cstdio>
#include <ctime>

// Ends the program once its window has been painted for the first time, and prints how long that
// took since the process was made: one line of JSON.
class FirstPaint : public QObject
{
public:
    static void watch()
    {
        static FirstPaint s_watcher;
        qApp->installEventFilter(&s_watcher);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *widget = qobject_cast<QWidget *>(watched);
        if (!painted && event->type() == QEvent::Paint && widget && widget->isWindow()) {
            painted = true;
            // After this paint event the picture is flushed to the screen; then the timer fires.
            QTimer::singleShot(0, [] {
                std::printf("{\"processor\": %.6f, \"wall\": %.6f}\n",
                            double(std::clock()) / CLOCKS_PER_SEC, sinceStart());
                std::fflush(stdout);
                QCoreApplication::quit();
            });
        }
        return false;
    }

private:
    // Seconds since the parent started this process, which it passes as CLOCK_MONOTONIC in
    // BENCH_START.
    static double sinceStart()
    {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return double(now.tv_sec) + double(now.tv_nsec) / 1e9 - qgetenv("BENCH_START").toDouble();
    }

    bool painted = false;
};

#pragma once

#include <QStringList>

#include <atomic>

// Settles between a task that is being destroyed and its worker whether an update is under way: one
// that has begun is waited for, and no other begins. There is no moment between the two.
class UpdateGate
{
public:
    // On the worker's thread. An update begins only if enter() says so; then each of its errors is
    // noted, and leave() is its end.
    bool enter();
    void noteError(const QString &text);
    void leave();

    // On the owner's thread: lets no update begin any more, and returns whether one is under way.
    bool close();
    // The errors of the update that close() found. Call it when the worker's thread has ended.
    QStringList errors() const;

private:
    enum class Stage { Idle, Updating, Closed, Ended };

    std::atomic<Stage> stage{Stage::Idle};
    QStringList noted;
};

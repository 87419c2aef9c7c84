#pragma once

#include <QString>

#include <functional>

// Where the steps of an update tell what the user is to hear. Called on the thread of the step.
struct UpdateReport
{
    std::function<void(int)> progress;          // percent of the whole update
    std::function<void(const QString &)> error; // a complete text, translated
};

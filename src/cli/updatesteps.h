#pragma once

#include "devicedescription.h"

#include <QString>

#include <vector>

struct Package;

// Which part of an update a percentage belongs to.
class UpdateSteps
{
public:
    UpdateSteps(const Package &package, quint32 mode);

    // Name of the step that is under way when so many percent are done.
    QString at(int percent) const;

private:
    struct Step
    {
        int from; // percent
        QString name;
    };
    std::vector<Step> steps;
};

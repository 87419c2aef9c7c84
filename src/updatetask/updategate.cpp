#include "updategate.h"

bool UpdateGate::enter()
{
    Stage expected = Stage::Idle;
    if (!stage.compare_exchange_strong(expected, Stage::Updating)) {
        return false;
    }
    noted.clear();
    return true;
}

void UpdateGate::noteError(const QString &text)
{
    noted += text;
}

void UpdateGate::leave()
{
    Stage expected = Stage::Updating;
    if (!stage.compare_exchange_strong(expected, Stage::Idle)) {
        stage = Stage::Ended;
    }
}

bool UpdateGate::close()
{
    return stage.exchange(Stage::Closed) == Stage::Updating;
}

QStringList UpdateGate::errors() const
{
    return stage == Stage::Ended ? noted : QStringList();
}

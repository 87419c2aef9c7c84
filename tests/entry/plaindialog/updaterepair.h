#pragma once

#include <QDialog>

// Stands in the dialog's place where main() is tested by itself: the real one and its workers
// register meta-types as a side effect of being used, and would hide what main() forgot.
class UpdateRepair : public QDialog
{
public:
    UpdateRepair();
};

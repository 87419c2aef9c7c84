// The least that a dialog program does until its first paint.

#include "firstpaint.h"

#include <QDialog>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    FirstPaint::watch();
    QDialog dialog;
    dialog.resize(543, 582);
    dialog.show();
    return QApplication::exec();
}

// The least that a dialog program does until its first paint.
//
//   bench-empty-dialog            as Qt has it if nothing is asked for
//   bench-empty-dialog raster     without loading OpenGL for the window, as the program asks for

#include "firstpaint.h"

#include <QDialog>

#include <cstring>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    if (argc == 2 && std::strcmp(argv[1], "raster") == 0) {
        QCoreApplication::setAttribute(Qt::AA_ForceRasterWidgets);
    }
    FirstPaint::watch();
    QDialog dialog;
    dialog.resize(543, 582);
    dialog.show();
    return QApplication::exec();
}

#include "listselection.h"

#include <QEvent>
#include <QListWidget>
#include <QSignalBlocker>

ListSelection::ListSelection(QListWidget *watchedList) : QObject(watchedList), list(watchedList)
{
    list->installEventFilter(this);
    connect(list, &QListWidget::currentRowChanged, this, &ListSelection::highlightCurrentRow);
}

bool ListSelection::accept()
{
    const QSignalBlocker quiet(list);
    const QList<QListWidgetItem *> highlighted = list->selectedItems();
    if (!highlighted.isEmpty()) {
        // A mouse that is dragged highlights a row before it makes it current.
        list->setCurrentItem(highlighted.first(), QItemSelectionModel::NoUpdate);
        return true;
    }
    if (list->currentRow() < 0) {
        return true;
    }
    // Ctrl with a click or with the space bar takes the highlight from the chosen row.
    list->setCurrentRow(list->currentRow(), QItemSelectionModel::Select);
    return false;
}

void ListSelection::highlightCurrentRow(int row)
{
    if (row >= 0 && list->selectedItems().isEmpty()) {
        list->setCurrentRow(row, QItemSelectionModel::Select);
    }
}

bool ListSelection::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::FocusIn && list->currentRow() < 0) {
        takeFocus(event);
        return true;
    }
    return QObject::eventFilter(watched, event);
}

// A list that gets the focus chooses its first row if none is current. Here that row would be the
// device that an update is written to.
void ListSelection::takeFocus(QEvent *event)
{
    const QSignalBlocker quiet(list);
    static_cast<QObject *>(list)->event(event);
    list->selectionModel()->clear();
}

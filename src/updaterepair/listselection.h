#pragma once

#include <QObject>

class QListWidget;

// Keeps the three things one that a list of single choice keeps apart: the current row, to which
// every request goes, the highlighted row, which the user sees, and the row that was chosen. A row
// is chosen by a click, an arrow key, Home or its first letters, never by the keyboard focus
// alone, and a chosen row stays chosen until another one is or the list is cleared.
class ListSelection : public QObject
{
    Q_OBJECT

public:
    // Watches the list as long as it lives, as a child of it. The list's mode of selection must be
    // QAbstractItemView::SingleSelection.
    explicit ListSelection(QListWidget *watchedList);

    // To be called first by whoever handles the list's itemSelectionChanged(). False when nothing
    // was chosen, that is, when the chosen row lost its highlight and has got it back.
    bool accept();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void highlightCurrentRow(int row);
    void takeFocus(QEvent *event);

    QListWidget *list;
};

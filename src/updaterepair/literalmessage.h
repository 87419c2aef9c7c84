#pragma once

#include <QString>

// A message as a message box shows it to the letter. Most messages come back unchanged; one that a
// box would take for rich text, since a package names its product "<b>x</b>", is written so that
// its mark-up is read and not obeyed.
QString literalMessage(const QString &text);

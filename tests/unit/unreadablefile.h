#pragma once

#include <QString>

// While an object of this class lives, there is a file that nobody can open, root included.
class UnreadableFile
{
public:
    explicit UnreadableFile(const QString &path);
    ~UnreadableFile();
    UnreadableFile(const UnreadableFile &) = delete;
    UnreadableFile &operator=(const UnreadableFile &) = delete;

private:
    void *handle = nullptr;
};

#pragma once

#include <QStringList>

#include <zip.h>

#include <functional>

// The program's calls of libzip, seen at the link (--wrap): each is logged and passed on, and a few
// can be made to fail in ways that no archive file brings about. On Windows an archive is opened
// with zip_open_from_source; the log calls that zip_open too.
namespace zipcalls {

void reset();
QStringList log();
// zip_stat_index of this entry fails.
void failStat(quint64 index);
// Each successful stat passes through this.
void changeStat(std::function<void(zip_stat_t &)> change);
// zip_open leaves this errno, whether it opens the archive or not.
void leaveErrno(int value);
#ifdef Q_OS_WIN
// The archive is not opened, with these codes of libzip and of the system.
void failOpen(int code, int systemCode);
#endif
// zip_get_num_entries gives -1.
void failCount();
// zip_close gives -1 and leaves the archive open, which is how it fails.
void failClose();

} // namespace zipcalls

#include "zipcalls.h"

#include <cerrno>
#include <optional>
#include <utility>

namespace {

QStringList s_log;
std::optional<quint64> s_failingStat;
std::function<void(zip_stat_t &)> s_change;
std::optional<int> s_errnoOfOpen;
#ifdef Q_OS_WIN
std::optional<std::pair<int, int>> s_failureOfOpen;
#endif
bool s_countFails = false;
bool s_closeFails = false;
int s_depth = 0; // a libzip that is linked statically calls its own functions through these, too

// A call of libzip, logged if it is the program's.
class Call
{
public:
    explicit Call(const QString &line)
    {
        if (s_depth++ == 0) {
            s_log.append(line);
        }
    }
    ~Call() { --s_depth; }
    Call(const Call &) = delete;
    Call &operator=(const Call &) = delete;
};

} // namespace

void zipcalls::reset()
{
    s_log.clear();
    s_failingStat.reset();
    s_change = nullptr;
    s_errnoOfOpen.reset();
#ifdef Q_OS_WIN
    s_failureOfOpen.reset();
#endif
    s_countFails = false;
    s_closeFails = false;
}

QStringList zipcalls::log()
{
    return s_log;
}

void zipcalls::failStat(quint64 index)
{
    s_failingStat = index;
}

void zipcalls::changeStat(std::function<void(zip_stat_t &)> change)
{
    s_change = std::move(change);
}

void zipcalls::leaveErrno(int value)
{
    s_errnoOfOpen = value;
}

#ifdef Q_OS_WIN
void zipcalls::failOpen(int code, int systemCode)
{
    s_failureOfOpen = {code, systemCode};
}
#endif

void zipcalls::failCount()
{
    s_countFails = true;
}

void zipcalls::failClose()
{
    s_closeFails = true;
}

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

#ifdef Q_OS_WIN
zip_t *__real_zip_open_from_source(zip_source_t *source, int flags, zip_error_t *error);
#else
zip_t *__real_zip_open(const char *path, int flags, int *error);
#endif
int __real_zip_close(zip_t *archive);
void __real_zip_discard(zip_t *archive);
zip_int64_t __real_zip_get_num_entries(zip_t *archive, zip_flags_t flags);
int __real_zip_stat(zip_t *archive, const char *name, zip_flags_t flags, zip_stat_t *stat);
int __real_zip_stat_index(zip_t *archive, zip_uint64_t index, zip_flags_t flags, zip_stat_t *stat);
zip_file_t *__real_zip_fopen(zip_t *archive, const char *name, zip_flags_t flags);
zip_file_t *__real_zip_fopen_index(zip_t *archive, zip_uint64_t index, zip_flags_t flags);
zip_int64_t __real_zip_fread(zip_file_t *file, void *buffer, zip_uint64_t length);
int __real_zip_fclose(zip_file_t *file);
int __real_zip_error_to_str(char *text, zip_uint64_t size, int error, int systemError);

#ifdef Q_OS_WIN
zip_t *__wrap_zip_open_from_source(zip_source_t *source, int flags, zip_error_t *error)
{
    const Call call(QStringLiteral("zip_open flags %1").arg(flags));
    if (s_failureOfOpen) {
        zip_error_set(error, s_failureOfOpen->first, s_failureOfOpen->second);
        return nullptr;
    }
    zip_t *archive = __real_zip_open_from_source(source, flags, error);
#else
zip_t *__wrap_zip_open(const char *path, int flags, int *error)
{
    const Call call(QStringLiteral("zip_open flags %1").arg(flags));
    zip_t *archive = __real_zip_open(path, flags, error);
#endif
    if (s_errnoOfOpen) {
        errno = *s_errnoOfOpen;
    }
    return archive;
}

int __wrap_zip_close(zip_t *archive)
{
    const Call call(QStringLiteral("zip_close"));
    return s_closeFails ? -1 : __real_zip_close(archive);
}

void __wrap_zip_discard(zip_t *archive)
{
    const Call call(QStringLiteral("zip_discard"));
    __real_zip_discard(archive);
}

zip_int64_t __wrap_zip_get_num_entries(zip_t *archive, zip_flags_t flags)
{
    const Call call(QStringLiteral("zip_get_num_entries"));
    return s_countFails ? -1 : __real_zip_get_num_entries(archive, flags);
}

int __wrap_zip_stat(zip_t *archive, const char *name, zip_flags_t flags, zip_stat_t *stat)
{
    const Call call(QStringLiteral("zip_stat ") + QString::fromUtf8(name));
    const int result = __real_zip_stat(archive, name, flags, stat);
    if (result == 0 && s_change) {
        s_change(*stat);
    }
    return result;
}

int __wrap_zip_stat_index(zip_t *archive, zip_uint64_t index, zip_flags_t flags, zip_stat_t *stat)
{
    const Call call(QStringLiteral("zip_stat_index %1").arg(index));
    // An index far past the end is how libzip itself comes to fail, with its error set. A libzip
    // that is linked statically looks up a name through here as well, which is not meant.
    const bool fails = s_depth == 1 && s_failingStat && *s_failingStat == index;
    const int result =
        __real_zip_stat_index(archive, fails ? ~zip_uint64_t(0) : index, flags, stat);
    if (result == 0 && s_change) {
        s_change(*stat);
    }
    return result;
}

zip_file_t *__wrap_zip_fopen(zip_t *archive, const char *name, zip_flags_t flags)
{
    const Call call(QStringLiteral("zip_fopen ") + QString::fromUtf8(name));
    return __real_zip_fopen(archive, name, flags);
}

zip_file_t *__wrap_zip_fopen_index(zip_t *archive, zip_uint64_t index, zip_flags_t flags)
{
    const Call call(QStringLiteral("zip_fopen_index %1").arg(index));
    return __real_zip_fopen_index(archive, index, flags);
}

zip_int64_t __wrap_zip_fread(zip_file_t *file, void *buffer, zip_uint64_t length)
{
    const Call call(QStringLiteral("zip_fread"));
    return __real_zip_fread(file, buffer, length);
}

int __wrap_zip_fclose(zip_file_t *file)
{
    const Call call(QStringLiteral("zip_fclose"));
    return __real_zip_fclose(file);
}

int __wrap_zip_error_to_str(char *text, zip_uint64_t size, int error, int systemError)
{
    const Call call(QStringLiteral("zip_error_to_str %1 %2").arg(error).arg(systemError));
    return __real_zip_error_to_str(text, size, error, systemError);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

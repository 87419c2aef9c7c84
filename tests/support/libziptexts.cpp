#include "libziptexts.h"

#include <zip.h>

#include <cerrno>

QString libzipText(int code, int systemCode)
{
    zip_error_t error;
    zip_error_init(&error);
    zip_error_set(&error, code, systemCode);
    const QString text = QString::fromUtf8(zip_error_strerror(&error));
    zip_error_fini(&error);
    return text;
}

LibzipRefusal libzipRefusal(const QString &path)
{
    LibzipRefusal refusal;
    errno = 0;
    zip_t *archive = zip_open(path.toUtf8().constData(), ZIP_RDONLY, &refusal.code);
    refusal.systemCode = errno;
    if (archive) {
        zip_discard(archive);
        return {};
    }
    return refusal;
}

QString libzipTextOfOpening(const QString &path)
{
    const LibzipRefusal refusal = libzipRefusal(path);
    return refusal.code == ZIP_ER_OK ? QString() : libzipText(refusal.code, refusal.systemCode);
}

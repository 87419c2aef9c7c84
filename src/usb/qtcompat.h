#pragma once

#include <QCoreApplication>
#include <QMetaType>
#include <QVariant>

// The one place that knows about differences between Qt 5 and Qt 6. Everything else is written in
// what both of them take.
namespace qtcompat {

// Makes a queued connection accept `alias` where the argument is a built-in `T`.
template<typename T> void register_alias(const char *alias)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QMetaType::registerNormalizedTypedef(alias, QMetaType::Type(qMetaTypeId<T>()));
#else
    QMetaType::registerNormalizedTypedef(alias, QMetaType::fromType<T>());
#endif
}

// Converts the variant in place; false, and an empty variant, when it cannot be done.
template<typename T> bool convert(QVariant &variant)
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    return variant.convert(qMetaTypeId<T>());
#else
    return variant.convert(QMetaType::fromType<T>());
#endif
}

// Qt 6 always draws high-density pixmaps and has no need of the attribute.
inline void use_high_dpi_pixmaps()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps, true);
#endif
}

} // namespace qtcompat

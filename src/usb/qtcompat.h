#pragma once

#include <QCoreApplication>
#include <QMetaType>
#include <QVariant>

// The one place that knows about differences between Qt 5 and Qt 6. Everything else is written in
// what both of them take.
namespace qtcompat {

// What QAbstractNativeEventFilter::nativeEventFilter() stores the answer to a message in.
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
using NativeEventResult = long;
#else
using NativeEventResult = qintptr;
#endif

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

// Draws everything as large as the screen's density asks for, fractions included, as Qt 6 always
// does. To be called before there is an application object, with its class (QApplication).
template<typename Application> void use_high_dpi_scaling()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    Application::setAttribute(Qt::AA_EnableHighDpiScaling, true);
    Application::setHighDpiScaleFactorRoundingPolicy(
        Qt::HighDpiScaleFactorRoundingPolicy::PassThrough);
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

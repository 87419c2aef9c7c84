#include "sessionhold.h"

#include "qtcompat.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QString>

#include <windows.h>

namespace platform {

namespace {

// Keeps an idle machine from falling asleep.
class PowerRequest
{
public:
    explicit PowerRequest(std::wstring reason)
    {
        REASON_CONTEXT context{};
        context.Version = POWER_REQUEST_CONTEXT_VERSION;
        context.Flags = POWER_REQUEST_CONTEXT_SIMPLE_STRING;
        context.Reason.SimpleReasonString = reason.data();
        request = PowerCreateRequest(&context);
        if (request != INVALID_HANDLE_VALUE) {
            PowerSetRequest(request, PowerRequestSystemRequired);
        }
    }
    ~PowerRequest()
    {
        if (request != INVALID_HANDLE_VALUE) {
            CloseHandle(request); // which withdraws it
        }
    }
    PowerRequest(const PowerRequest &) = delete;
    PowerRequest &operator=(const PowerRequest &) = delete;

private:
    HANDLE request;
};

} // namespace

// The reason alone does not stop the end of a session: the window must refuse it as well.
class SessionHold::System : public QAbstractNativeEventFilter
{
public:
    System(quintptr handle, const QString &reason)
        : window(reinterpret_cast<HWND>(handle)), power(reason.toStdWString())
    {
        ShutdownBlockReasonCreate(window, reason.toStdWString().c_str());
        QCoreApplication::instance()->installNativeEventFilter(this);
    }
    ~System() override { ShutdownBlockReasonDestroy(window); }
    System(const System &) = delete;
    System &operator=(const System &) = delete;

    bool nativeEventFilter(const QByteArray &, void *message,
                           qtcompat::NativeEventResult *result) override
    {
        if (static_cast<const MSG *>(message)->message != WM_QUERYENDSESSION) {
            return false;
        }
        *result = FALSE;
        return true;
    }

private:
    HWND window;
    PowerRequest power;
};

SessionHold::SessionHold(quintptr window, const QString &reason, QObject *parent)
    : QObject(parent), system(std::make_unique<System>(window, reason))
{
}

SessionHold::~SessionHold() = default;

} // namespace platform

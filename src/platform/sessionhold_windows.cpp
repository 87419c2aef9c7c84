#include "sessionhold.h"

#include "qtcompat.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QString>

#include <utility>

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

// A window of the screen's top level: only those are asked whether the session may end. What it is
// asked comes while the event loop of its thread runs.
class UnseenWindow
{
public:
    UnseenWindow()
    {
        WNDCLASSW its{};
        its.lpfnWndProc = answer;
        its.hInstance = GetModuleHandleW(nullptr);
        its.lpszClassName = s_class;
        RegisterClassW(&its); // which a second time fails and changes nothing
        window = CreateWindowExW(WS_EX_TOOLWINDOW, s_class, L"", WS_POPUP, 0, 0, 0, 0, nullptr,
                                 nullptr, its.hInstance, nullptr);
    }
    ~UnseenWindow() { DestroyWindow(window); }
    UnseenWindow(const UnseenWindow &) = delete;
    UnseenWindow &operator=(const UnseenWindow &) = delete;

    quintptr handle() const { return reinterpret_cast<quintptr>(window); }

private:
    static constexpr const wchar_t *s_class = L"CapsoSessionHold";

    static LRESULT CALLBACK answer(HWND window, UINT message, WPARAM word, LPARAM value)
    {
        return message == WM_QUERYENDSESSION ? FALSE : DefWindowProcW(window, message, word, value);
    }

    HWND window;
};

} // namespace

// The reason alone does not stop the end of a session: the window must refuse it as well.
class SessionHold::System : public QAbstractNativeEventFilter
{
public:
    explicit System(const QString &reason, std::unique_ptr<UnseenWindow> made)
        : System(made->handle(), reason)
    {
        unseen = std::move(made);
    }
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
    std::unique_ptr<UnseenWindow> unseen; // where the program has none
    HWND window;
    PowerRequest power;
};

SessionHold::SessionHold(quintptr window, const QString &reason, QObject *parent)
    : QObject(parent), system(std::make_unique<System>(window, reason))
{
}

SessionHold::SessionHold(const QString &reason)
    : system(std::make_unique<System>(reason, std::make_unique<UnseenWindow>()))
{
}

SessionHold::~SessionHold() = default;

} // namespace platform

#pragma once

#include <QImage>
#include <QPoint>
#include <QString>

#include <functional>

struct _rfbClient;

// The panel's 800 x 480 screen and pointer, seen through the VNC server of the toolkit on the
// panel. Connects by itself and again after a power cycle. Use from one thread.
class VncScreen {
public:
    explicit VncScreen(const QString &socket);
    ~VncScreen();

    // What the screen shows now; a null image when the panel did not answer within `ms` (it is off,
    // or a test blocks its event loop).
    QImage grab(int ms = 5000);
    // Grabs until the image satisfies the predicate; the last image either way, null if there was
    // none. `*satisfied`, if given, tells which.
    QImage waitFor(const std::function<bool(const QImage &)> &predicate, int ms,
                   bool *satisfied = nullptr);
    // The colour bits that the display's lines carry to the glass: 0xffffff for all, see grab().
    void setLines(QRgb lines)
    {
        lines_ = lines;
    }
    // Moves the pointer, with the button held or not. False when the panel is not connected.
    bool pointer(const QPoint &pixel, bool pressed);
    void disconnect();

private:
    bool connect(int ms);
    QImage onGlass() const;
    static void updated(_rfbClient *client, int x, int y, int w, int h);

    const QString socket_;
    _rfbClient *client_ = nullptr;
    QRgb lines_ = 0xffffff;
    int received_ = 0; // pixels since the last full request
};

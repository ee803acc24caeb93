#include "panel/vncscreen.h"

#include "panel/interrupt.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <rfb/rfbclient.h>

#include <csignal>

namespace {
constexpr int width = 800, height = 480;
char tag; // identifies our pointer among libvncclient's client data
} // namespace

VncScreen::VncScreen(const QString &socket)
    : socket_(socket)
{
    rfbEnableClientLogging = FALSE;
    // A panel may die while it is touched: the write fails then. A handler, for what is ignored
    // stays so in every program that is started.
    signal(SIGPIPE, [](int) {});
}

VncScreen::~VncScreen()
{
    disconnect();
}

void VncScreen::disconnect()
{
    if (client_) {
        free(client_->frameBuffer); // the library leaves that to its user
        rfbClientCleanup(client_);
    }
    client_ = nullptr;
}

void VncScreen::updated(_rfbClient *client, int, int, int w, int h)
{
    static_cast<VncScreen *>(rfbClientGetClientData(client, &tag))->received_ += w * h;
}

// Until the agent has its screen up the socket refuses or hangs up at once.
bool VncScreen::connect(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (!client_ && clock.elapsed() < ms && !interrupted()) {
        client_ = rfbGetClient(8, 3, 4); // 32 bits a pixel
        free(client_->serverHost);
        client_->serverHost = strdup(QFile::encodeName(socket_).constData());
        client_->connectTimeout = 1;
        client_->readTimeout = 5;
        client_->format.redShift = 16; // QImage::Format_RGB32
        client_->format.greenShift = 8;
        client_->format.blueShift = 0;
        client_->appData.encodingsString = "raw";
        client_->appData.useRemoteCursor = FALSE;
        client_->GotFrameBufferUpdate = &VncScreen::updated;
        rfbClientSetClientData(client_, &tag, this);
        if (!rfbInitClient(client_, nullptr, nullptr)) { // which frees the client when it fails
            client_ = nullptr;
            QThread::msleep(5);
        }
    }
    return client_;
}

QImage VncScreen::onGlass() const
{
    QImage image =
        QImage(client_->frameBuffer, width, height, width * 4, QImage::Format_RGB32).copy();
    auto *pixels = reinterpret_cast<QRgb *>(image.bits());
    for (int i = 0; i < width * height; ++i)
        pixels[i] &= lines_ | 0xff000000;
    return image;
}

QImage VncScreen::grab(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (connect(ms - int(clock.elapsed()))) {
        // What is already on its way is older than this request: the answer to the request that
        // connecting makes, or to one that was given up.
        bool alive = true;
        while (alive && WaitForMessage(client_, 0) > 0)
            alive = HandleRFBServerMessage(client_);
        received_ = 0;
        alive = alive && SendFramebufferUpdateRequest(client_, 0, 0, width, height, FALSE);
        while (alive && received_ < width * height && clock.elapsed() < ms) {
            const int ready = WaitForMessage(client_, 20000); // microseconds
            alive = ready >= 0 && (ready == 0 || HandleRFBServerMessage(client_));
        }
        if (alive && received_ >= width * height)
            return onGlass();
        if (!alive)
            disconnect(); // the panel was switched off; it may be on again
        else
            break;
    }
    return {};
}

QImage VncScreen::waitFor(const std::function<bool(const QImage &)> &predicate, int ms,
                          bool *satisfied)
{
    QElapsedTimer clock;
    clock.start();
    QImage image;
    bool good = false;
    do {
        image = grab(qMax(1, ms - int(clock.elapsed())));
        good = !image.isNull() && predicate(image);
        if (!good)
            QThread::msleep(10);
    } while (!good && clock.elapsed() < ms && !interrupted());
    if (satisfied)
        *satisfied = good;
    return image;
}

bool VncScreen::pointer(const QPoint &pixel, bool pressed)
{
    return connect(2000)
        && SendPointerEvent(client_, pixel.x(), pixel.y(), pressed ? rfbButton1Mask : 0);
}

#include "station/codec.h"

#include <numeric>

static QByteArray twoDigits(int value)
{
    return QByteArray::number(value & 0xff, 16).rightJustified(2, '0').toUpper();
}

QByteArray hexLrc(const QByteArray &ascii)
{
    int sum = 0;
    for (int at = 0; at < ascii.size(); at += 2) {
        sum += ascii.mid(at, 2).toInt(nullptr, 16);
    }
    return twoDigits(-sum);
}

QByteArray characterLrc(const QByteArray &ascii)
{
    return twoDigits(-std::accumulate(ascii.begin(), ascii.end(), 0,
                                      [](int sum, char c) { return sum + uchar(c); }));
}

QByteArray shortRequest(int number, const QByteArray &code)
{
    const QByteArray body = twoDigits(number) + code;
    return ':' + body + hexLrc(body) + "\r\n";
}

QByteArray clockRequest(const QByteArray &kind, const QDateTime &time)
{
    const QByteArray weekday = twoDigits(time.date().dayOfWeek() % 7);
    const QByteArray body = "00" + kind + time.toString("ssmmHHddMM").toLatin1() + weekday
        + time.toString("yy").toLatin1();
    return ':' + body + hexLrc(body) + "\r\n";
}

QByteArray identityRequest(int number, const QByteArray &code, const QByteArray &id)
{
    const QByteArray body = twoDigits(number) + code + id;
    return ':' + body + characterLrc(body) + "\r\n";
}

QByteArray colourRequest(const QByteArray &rgb)
{
    return ":9510" + rgb;
}

QByteArray gotoRequest(const QByteArray &model, const QByteArray &level)
{
    return model + '-' + level + "\r\n";
}

static bool isHex(const QByteArray &text)
{
    for (char c : text) {
        if (!isxdigit(uchar(c)) || islower(uchar(c))) {
            return false;
        }
    }
    return !text.isEmpty();
}

Reply decode(const QByteArray &bytes)
{
    Reply reply;
    if (bytes.isEmpty()) {
        return reply;
    }
    const int colon = bytes.lastIndexOf(':');
    reply.payload = bytes;
    if (colon < 0) {
        reply.kind = Reply::Text;
        return reply;
    }
    reply.kind = Reply::Damaged;
    reply.noise = bytes.left(colon);
    QByteArray body = bytes.mid(colon + 1);
    const bool lineFeed = body.endsWith("\r\n");
    if (!lineFeed && !body.endsWith('\r')) {
        return reply;
    }
    body.chop(lineFeed ? 2 : 1);
    const QByteArray check = body.right(2);
    body.chop(2);
    if (body.size() < 6 || !isHex(body.left(6))) {
        return reply;
    }
    if (isHex(body) && check == hexLrc(body)) {
        reply.kind = lineFeed ? Reply::Frame : Reply::Battery;
    } else if (lineFeed && body.mid(2, 2) == "07" && check == characterLrc(body)) {
        reply.kind = Reply::Identity;
    } else {
        return reply;
    }
    reply.station = body.left(2).toInt(nullptr, 16);
    reply.payload = body.mid(2);
    return reply;
}

bool isComplete(const QByteArray &bytes, bool quiet)
{
    if (bytes.isEmpty()) {
        return false;
    }
    if (bytes.endsWith('\n')) {
        return true;
    }
    return quiet && (!bytes.contains(':') || bytes.endsWith('\r'));
}

QString printable(const QByteArray &bytes)
{
    QString text;
    for (char c : bytes) {
        if (c == '\\') {
            text += "\\\\";
        } else if (c == '\r') {
            text += "\\r";
        } else if (c == '\n') {
            text += "\\n";
        } else if (uchar(c) < 32 || uchar(c) > 126) {
            text += QString("\\x%1").arg(uchar(c), 2, 16, QLatin1Char('0'));
        } else {
            text += QLatin1Char(c);
        }
    }
    return text;
}

QByteArray unprintable(const QByteArray &text)
{
    QByteArray bytes;
    for (int i = 0; i < text.size(); ++i) {
        const char escape = text[i] == '\\' && i + 1 < text.size() ? text[++i] : '\0';
        if (!escape) {
            bytes += text[i];
        } else if (escape == 'x') {
            bytes += char(text.mid(i + 1, 2).toInt(nullptr, 16));
            i += 2;
        } else {
            bytes += escape == 'r' ? '\r' : escape == 'n' ? '\n' : escape;
        }
    }
    return bytes;
}

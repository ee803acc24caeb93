#include "commands/codec.h"

#include <QHash>
#include <QRegularExpression>

#include <numeric>

// Two's complement of the sum of the characters, as two upper-case hex digits.
static QByteArray characterLrc(const QByteArray &text)
{
    const int sum = std::accumulate(text.begin(), text.end(), 0);
    return QByteArray::number(-sum & 0xff, 16).rightJustified(2, '0').toUpper();
}

static QByteArray hexLrc(const QByteArray &digits)
{
    return characterLrc(QByteArray::fromHex(digits));
}

QByteArray shortRequest(const QByteArray &code)
{
    const QByteArray body = "00" + code;
    return ':' + body + hexLrc(body) + "\r\n";
}

Reply decode(const QByteArray &bytes)
{
    static const QRegularExpression form("\\A([0-9A-F]{6}.*)(..)\r(\n?)\\z",
                                         QRegularExpression::DotMatchesEverythingOption);
    Reply reply;
    reply.payload = bytes;
    const int colon = bytes.lastIndexOf(':');
    if (colon < 0) {
        reply.kind = bytes.isEmpty() ? Reply::None : Reply::Text;
        return reply;
    }
    reply.kind = Reply::Damaged;
    // All of it, zeros included: another conversion stops at the first.
    const QString rest =
        QString::fromLatin1(bytes.constData() + colon + 1, bytes.size() - colon - 1);
    const QRegularExpressionMatch frame = form.match(rest);
    const QByteArray body = frame.captured(1).toLatin1(), check = frame.captured(2).toLatin1();
    const bool lineFeed = !frame.captured(3).isEmpty();
    const bool hex = body == QByteArray::fromHex(body).toHex().toUpper();
    if (hex && check == hexLrc(body))
        reply.kind = lineFeed ? Reply::Frame : Reply::Battery;
    else if (lineFeed && body.mid(2, 2) == "07" && check == characterLrc(body))
        reply.kind = Reply::Identity;
    else
        return reply;
    reply.payload = body.mid(2);
    return reply;
}

bool isComplete(const QByteArray &bytes, bool quiet)
{
    const bool endless = !bytes.isEmpty() && (!bytes.contains(':') || bytes.endsWith('\r'));
    return bytes.endsWith('\n') || (quiet && endless);
}

QString printable(const QByteArray &bytes)
{
    QString text;
    for (char c : bytes) {
        switch (c) {
        case '\\':
            text += "\\\\";
            break;
        case '\r':
            text += "\\r";
            break;
        case '\n':
            text += "\\n";
            break;
        default:
            text += uchar(c) < 32 || uchar(c) > 126
                ? QString("\\x%1").arg(uchar(c), 2, 16, QLatin1Char('0'))
                : QString(QLatin1Char(c));
        }
    }
    return text;
}

QByteArray unprintable(const QByteArray &text)
{
    static const QHash<char, char> known = {{'r', '\r'}, {'n', '\n'}};
    QByteArray bytes;
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            bytes += text[i];
        } else if (text[++i] == 'x') {
            bytes += char(text.mid(i + 1, 2).toInt(nullptr, 16));
            i += 2;
        } else {
            bytes += known.value(text[i], text[i]);
        }
    }
    return bytes;
}

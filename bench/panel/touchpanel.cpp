#include "panel/touchpanel.h"

#include <QList>
#include <QtMath>

// x = (c[0] * X + c[1] * Y + c[2]) / c[6], y likewise with c[3] to c[5]. The half-pixel offsets of
// the foil cancel in the truncation.
const char factoryPointercal[] = "12800 0 0 0 7680 0 65536";

QPoint TouchPanel::raw(const QPoint &spot)
{
    std::normal_distribution<double> error(0, noise > 0 ? noise : 1);
    const auto sample = [&](double value) {
        return qBound(0, qFloor(value + (noise > 0 ? error(random) : 0)), 4095);
    };
    return {sample(xx * spot.x() + xy * spot.y() + x0), sample(yx * spot.x() + yy * spot.y() + y0)};
}

QPoint TouchPanel::pixel(const QPoint &raw, const QByteArray &pointercal)
{
    const QByteArray text = pointercal.left(pointercal.indexOf('\0')).simplified();
    QList<QByteArray> c = text.split(' ');
    if (c.size() < 7 || c[6].toLongLong() == 0)
        c = QByteArray(factoryPointercal).split(' ');
    const auto map = [&](int i) {
        return int(
            (c[i].toLongLong() * raw.x() + c[i + 1].toLongLong() * raw.y() + c[i + 2].toLongLong())
            / c[6].toLongLong());
    };
    return {qBound(0, map(0), 799), qBound(0, map(3), 479)};
}

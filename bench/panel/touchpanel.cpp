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
    const double u = spot.x() / 400.0 - 1, v = spot.y() / 240.0 - 1;
    const double x = spot.x() + shift + bend * qMax(0.0, -u * v), y = spot.y();
    return {sample(xx * x + xy * y + x0), sample(yx * x + yy * y + y0)};
}

TouchPanel TouchPanel::ofPanel(quint32 serial)
{
    std::mt19937 random(serial);
    const auto within = [&](double from, double to) {
        return std::uniform_real_distribution<double>(from, to)(random);
    };
    const double scale = within(0.94, 0.97), turn = within(-0.03, 0.03);
    const double sx = scale * 4096 / 800, sy = scale * 4096 / 480;
    TouchPanel foil;
    foil.xx = sx * qCos(turn);
    foil.xy = -sx * qSin(turn);
    foil.yx = sy * qSin(turn);
    foil.yy = sy * qCos(turn);
    foil.x0 = within(2028, 2068) - foil.xx * 400 - foil.xy * 240;
    foil.y0 = within(2028, 2068) - foil.yx * 400 - foil.yy * 240;
    return foil;
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

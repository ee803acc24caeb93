#include "calibrationmath.h"

#include "state/runstate.h"

#include <cstdio>
#include <limits>

constexpr float SmallestDeterminant = 0.1f;
constexpr float Scale = 65536;

bool isCalibrateLevel(quint32 level)
{
    return level == LevelAppCalibrate || level == LevelT1;
}

bool isCheckLevel(quint32 level)
{
    return level == LevelAppCheck || level == LevelT1Check || level == LevelT2;
}

int checkTolerance(quint32 level)
{
    switch (level) {
    case LevelAppCheck:
        return 12;
    case LevelT2:
        return 11;
    default:
        return 10;
    }
}

// --- Fit ----------------------------------------------------------------------------------------

// A product as the panel's 32-bit integers make it: it wraps. ADC values of 12 bits never get
// there, but what the driver prints is not under this program's control.
static float product(qint32 a, qint32 b)
{
    return float(qint32(quint32(a) * quint32(b)));
}

// Truncation that saturates, as the panel's processor converts; plain C++ leaves it open.
static qint32 truncated(float value)
{
    constexpr float Limit = 2147483648.0f;
    if (value >= Limit)
        return std::numeric_limits<qint32>::max();
    return value < -Limit ? std::numeric_limits<qint32>::min() : qint32(value);
}

struct RawSums {
    float n = 0, x = 0, y = 0, x2 = 0, y2 = 0, xy = 0;

    explicit RawSums(const CalibrationRecord &record)
    {
        for (int i = 0; i < TouchTargets; ++i) {
            n += 1.0f;
            x += float(record.raw_x[i]);
            y += float(record.raw_y[i]);
            x2 += product(record.raw_x[i], record.raw_x[i]);
            y2 += product(record.raw_y[i], record.raw_y[i]);
            xy += product(record.raw_x[i], record.raw_y[i]);
        }
    }
};

// The inverse of the symmetric matrix of the sums.
struct Inverse {
    float a, b, c, e, f, i;

    Inverse(const RawSums &s, float det)
        : a((s.x2 * s.y2 - s.xy * s.xy) / det)
        , b((s.xy * s.y - s.x * s.y2) / det)
        , c((s.x * s.xy - s.y * s.x2) / det)
        , e((s.n * s.y2 - s.y * s.y) / det)
        , f((s.x * s.y - s.n * s.xy) / det)
        , i((s.n * s.x2 - s.x * s.x) / det)
    {
    }
};

// Constant, factor of raw x and factor of raw y for one screen coordinate.
static void fitCoordinate(const CalibrationRecord &record, const qint32 (&screen)[TouchTargets],
                          const Inverse &m, qint32 *coeff)
{
    float z = 0, zx = 0, zy = 0;
    for (int i = 0; i < TouchTargets; ++i) {
        z += float(screen[i]);
        zx += product(screen[i], record.raw_x[i]);
        zy += product(screen[i], record.raw_y[i]);
    }
    coeff[0] = truncated((m.a * z + m.b * zx + m.c * zy) * Scale);
    coeff[1] = truncated((m.b * z + m.e * zx + m.f * zy) * Scale);
    coeff[2] = truncated((m.c * z + m.f * zx + m.i * zy) * Scale);
}

// Single precision on purpose: the panels in the field were calibrated with these very values.
bool fitCalibration(CalibrationRecord &record, float *determinant)
{
    for (qint32 &coefficient : record.coeff)
        coefficient = 0;
    const RawSums s(record);
    const float det = s.n * (s.x2 * s.y2 - s.xy * s.xy) + s.x * (s.xy * s.y - s.x * s.y2)
        + s.y * (s.x * s.xy - s.y * s.x2);
    *determinant = det;
    if (-SmallestDeterminant < det && det < SmallestDeterminant)
        return false;
    const Inverse inverse(s, det);
    fitCoordinate(record, record.screen_x, inverse, record.coeff);
    fitCoordinate(record, record.screen_y, inverse, record.coeff + 3);
    record.coeff[6] = qint32(Scale);
    return true;
}

bool isFitted(const CalibrationRecord &record)
{
    return record.coeff[6] != 0;
}

QByteArray coefficientText(const CalibrationRecord &record)
{
    const auto &c = record.coeff;
    char text[7 * 12];
    snprintf(text, sizeof text, "%d %d %d %d %d %d %d", c[1], c[2], c[0], c[4], c[5], c[3], c[6]);
    return text;
}

QByteArray bootLoaderLine(const CalibrationRecord &record)
{
    return "pointercal " + coefficientText(record);
}

// --- Check --------------------------------------------------------------------------------------

bool isHit(const QPoint &touched, const QPoint &target, int tolerance)
{
    const QPoint miss = touched - target;
    return qAbs(miss.x()) <= tolerance && qAbs(miss.y()) <= tolerance;
}

bool isJudged(int index, bool checkAll)
{
    return checkAll || (index != 1 && index != 3);
}

CheckVerdict checkTouches(const QPoint (&touched)[TouchTargets], const Targets &targets,
                          int tolerance, bool checkAll)
{
    CheckVerdict verdict = {true, {}};
    for (int i = 0; i < TouchTargets; ++i) {
        verdict.legal[size_t(i)] = isHit(touched[i], targets[size_t(i)], tolerance);
        verdict.good &= verdict.legal[size_t(i)] || !isJudged(i, checkAll);
    }
    return verdict;
}

QByteArray touchedLine(const QPoint (&touched)[TouchTargets], int index)
{
    if (index < 0 || index >= TouchTargets)
        return QByteArray();
    char line[32];
    snprintf(line, sizeof line, "(%d,%d)\n", touched[index].x(), touched[index].y());
    return line;
}

qint32 halfway(qint32 before, qint32 sample)
{
    return qint32((qint64(before) + sample) / 2);
}

QPoint halfway(const QPoint &before, const QPoint &sample)
{
    return {halfway(before.x(), sample.x()), halfway(before.y(), sample.y())};
}

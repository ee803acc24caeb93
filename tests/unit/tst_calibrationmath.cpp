#include "MouseCalibration/calibrationmath.h"
#include "MouseCalibration/targets.h"

#include <QTemporaryDir>
#include <QtTest>
#include <climits>
#include <random>
#include <tslib.h>
#include <unistd.h>

static const QSize screen(800, 480);

// A resistive panel: raw = m * pixel + offset, optionally with noise of so many ADC steps.
struct Foil {
    double xx, xy, x0, yx, yy, y0;
    double noise = 0;

    QPoint raw(const QPoint &pixel, std::mt19937 &random) const
    {
        std::uniform_real_distribution<double> error(-noise, noise);
        return {qRound(xx * pixel.x() + xy * pixel.y() + x0 + error(random)),
                qRound(yx * pixel.x() + yy * pixel.y() + y0 + error(random))};
    }
};

static CalibrationRecord touched(const Foil &foil, std::mt19937 &random)
{
    CalibrationRecord record = {};
    const Targets targets = calibrationTargets(screen);
    for (int i = 0; i < TouchTargets; ++i) {
        const QPoint raw = foil.raw(targets[size_t(i)], random);
        record.raw_x[i] = raw.x();
        record.raw_y[i] = raw.y();
        record.screen_x[i] = targets[size_t(i)].x();
        record.screen_y[i] = targets[size_t(i)].y();
    }
    return record;
}

static QByteArray fileContent(const CalibrationRecord &record)
{
    return coefficientText(record) + '\0';
}

// The touch stack's own reading of a calibration file. A controller that sends reports of 22 bytes,
// with 16 bits a coordinate, plays the panel: from a plain file.
class Tslib {
    static constexpr int ReportSize = 22;

public:
    // It complains about the screen size that may follow the seven numbers and is not there.
    Tslib()
        : m_standardError(dup(STDERR_FILENO))
    {
        QFile silence("/dev/null");
        if (silence.open(QIODevice::WriteOnly))
            dup2(silence.handle(), STDERR_FILENO);
    }
    ~Tslib()
    {
        dup2(m_standardError, STDERR_FILENO);
        close(m_standardError);
    }
    QVector<QPoint> map(const QByteArray &calibration, const QVector<QPoint> &raws)
    {
        write("calibration", calibration);
        write("conf", "module_raw waveshare len=22\nmodule linear\n");
        QByteArray samples;
        for (const QPoint &raw : raws) {
            QByteArray report;
            for (int byte : {0xaa, 1, raw.x() >> 8, raw.x(), raw.y() >> 8, raw.y()})
                report += char(byte);
            samples += report.leftJustified(ReportSize, '\0');
        }
        write("device", samples);
        qputenv("TSLIB_CONFFILE", path("conf"));
        qputenv("TSLIB_CALIBFILE", path("calibration"));
        tsdev *device = ts_open(path("device").constData(), 0);
        QVector<QPoint> pixels;
        ts_sample sample = {};
        if (device && ts_config(device) == 0) {
            while (pixels.size() < raws.size() && ts_read(device, &sample, 1) == 1)
                pixels.append({sample.x, sample.y});
        }
        if (device)
            ts_close(device);
        return pixels;
    }

private:
    QByteArray path(const char *name) const
    {
        return QFile::encodeName(m_folder.filePath(name));
    }
    void write(const char *name, const QByteArray &content)
    {
        QFile file(m_folder.filePath(name));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    }

    QTemporaryDir m_folder;
    const int m_standardError;
};

class CalibrationMathTest : public QObject {
    Q_OBJECT

private slots:
    // Worked out with a calculator that rounds to single precision after each step; in double
    // precision the constants come out as -1653765 and 173767.
    void singlePrecisionToTheLastDigit()
    {
        CalibrationRecord record = {{611, 3398, 3467, 655, 2029},
                                    {100, 700, 700, 100, 400},
                                    {843, 799, 3251, 3302, 2044},
                                    {100, 100, 380, 380, 240},
                                    {}};
        float determinant;
        QVERIFY(fitCalibration(record, &determinant));
        QCOMPARE(double(determinant), 236461840400384.0);
        QCOMPARE(coefficientText(record), QByteArray("14040 -322 -1653800 126 7470 173760 65536"));
        QCOMPARE(bootLoaderLine(record),
                 QByteArray("pointercal 14040 -322 -1653800 126 7470 173760 65536"));
    }

    void degeneratePoints()
    {
        const std::array<int, 5> none = {}, spread = {500, 3500, 3500, 500, 2000},
                                 same = {2048, 2048, 2048, 2048, 2048};
        const struct {
            const char *name;
            std::array<int, 5> x, y;
        } rows[] = {
            {"identical", same, same},         {"no ADC", none, none},
            {"no number for x", none, spread}, {"no number for y", spread, none},
            {"on a diagonal", spread, spread},
        };
        for (const auto &row : rows) {
            std::mt19937 random(1);
            CalibrationRecord record = touched({5, 0, 20, 0, 8, 100}, random);
            float determinant;
            QVERIFY(fitCalibration(record, &determinant) && isFitted(record));
            std::copy(row.x.begin(), row.x.end(), record.raw_x);
            std::copy(row.y.begin(), row.y.end(), record.raw_y);
            QVERIFY2(!fitCalibration(record, &determinant), row.name);
            QCOMPARE(determinant, 0.0f);
            QVERIFY2(!isFitted(record), "the coefficients of the fit before must not survive");
        }
    }

    void absurdRawValuesAreHarmless()
    {
        CalibrationRecord record = {};
        for (int i = 0; i < TouchTargets; ++i) {
            record.raw_x[i] = INT_MAX - i;
            record.raw_y[i] = i % 2 ? INT_MIN : INT_MAX;
            record.screen_x[i] = record.screen_y[i] = 100 * i;
        }
        float determinant;
        fitCalibration(record, &determinant);
        QCOMPARE(halfway(INT_MAX, INT_MAX), INT_MAX);
        QCOMPARE(halfway(QPoint(-3, 0), QPoint(0, 5)), QPoint(-1, 2));
    }

    // Each point out of place by what is allowed, and by one pixel more.
    void toleranceOfTheLevel()
    {
        const QMap<quint32, int> allowed = {{LevelT1Check, 10}, {LevelT2, 11}, {254, 12}};
        for (auto level = allowed.begin(); level != allowed.end(); ++level) {
            QVERIFY(isCheckLevel(level.key()) && !isCalibrateLevel(level.key()));
            const Targets targets = checkTargets(screen, level.key());
            for (int trial = 0; trial < 5 * 4 * 2 * 2; ++trial) {
                const int target = trial % 5;
                const QPoint side = std::array<QPoint, 4>{
                    {{1, 0}, {-1, 0}, {0, 1}, {0, -1}}}[size_t(trial / 5 % 4)];
                const bool over = trial / 20 % 2, all = trial / 40;
                QPoint touches[TouchTargets];
                std::copy(targets.begin(), targets.end(), touches);
                touches[target] += side * (level.value() + over);
                const CheckVerdict verdict =
                    checkTouches(touches, targets, checkTolerance(level.key()), all);
                const bool spared = !all && (target == 1 || target == 3);
                QCOMPARE(verdict.good, !over || spared);
                for (int i = 0; i < TouchTargets; ++i)
                    QCOMPARE(verdict.legal[size_t(i)], !(over && i == target));
            }
        }
    }

    void tslibAgrees()
    {
        std::mt19937 random(20);
        const auto uniform = [&](double from, double to) {
            return std::uniform_real_distribution<double>(from, to)(random);
        };
        Tslib tslib;
        int worst = 0;
        for (int panel = 0; panel < 200; ++panel) {
            // Scaled, turned by up to ten degrees about the middle, mirrored, perhaps with swapped
            // axes, and a finger that trembles.
            const double turn = uniform(-0.17, 0.17);
            const double sx = uniform(3.2, 4.3) * (random() % 2 ? 1 : -1);
            const double sy = uniform(4.5, 6.5) * (random() % 2 ? 1 : -1);
            Foil foil = {sx * cos(turn), -sx * sin(turn), 0, sy * sin(turn), sy * cos(turn), 0, 3};
            if (random() % 2) {
                std::swap(foil.xx, foil.yx);
                std::swap(foil.xy, foil.yy);
            }
            foil.x0 = uniform(1950, 2150) - foil.xx * 400 - foil.xy * 240;
            foil.y0 = uniform(1950, 2150) - foil.yx * 400 - foil.yy * 240;
            CalibrationRecord record = touched(foil, random);
            float determinant;
            QVERIFY(fitCalibration(record, &determinant));
            const Targets targets = checkTargets(screen, LevelT1Check);
            QVector<QPoint> raws;
            for (const QPoint &target : targets)
                raws.append(foil.raw(target, random));
            const QVector<QPoint> pixels = tslib.map(fileContent(record), raws);
            QCOMPARE(pixels.size(), raws.size());
            for (int i = 0; i < pixels.size(); ++i) {
                const QPoint off = pixels[i] - targets[size_t(i)];
                worst = qMax(worst, qMax(qAbs(off.x()), qAbs(off.y())));
            }
            QVERIFY2(worst <= 2, qPrintable(QString("panel %1: off by %2").arg(panel).arg(worst)));
        }
        qInfo("200 panels, off by at most %d pixels", worst);
    }
};

QTEST_GUILESS_MAIN(CalibrationMathTest)
#include "tst_calibrationmath.moc"

#pragma once

#include <QByteArray>
#include <QPoint>
#include <QSize>

#include <random>

// The resistive foil: from the pixel under the finger to the two 12-bit ADC values. The mapping is
// affine, different on every panel, unless the foil is out of order; the default is the ideal foil,
// whose full scale is the screen.
struct TouchPanel {
    // raw = {xx * x + xy * y + x0, yx * x + yy * y + y0}
    double xx = 4096.0 / 800, xy = 0, x0 = 4096.0 / 800 / 2;
    double yx = 0, yy = 4096.0 / 480, y0 = 4096.0 / 480 / 2;
    double noise = 0; // standard deviation of each sample, in ADC steps
    double shift = 0; // pixels by which the foil has slipped to the right
    // Pixels by which it reads too far right in the upper right and lower left corner, less and
    // less towards the middle lines and not at all beyond: no affine calibration undoes that.
    double bend = 0;

    // The foil of a panel as it comes from its maker: scaled, turned and off by a little.
    static TouchPanel ofPanel(quint32 serial);
    int restPressure = 0; // what the pressure reads with nobody touching
    std::mt19937 random = {}; // fixed seed: a run can be repeated

    // One sample of the ADC with the finger at a pixel, 0...4095.
    QPoint raw(const QPoint &spot);

    // Where the panel's input stack puts a sample: the seven integers of a pointer calibration file
    // applied to it. An unusable file counts as the ideal foil's.
    static QPoint pixel(const QPoint &raw, const QByteArray &pointercal);
};

// The pointer calibration of the ideal foil, as the board factory ships it.
extern const char factoryPointercal[];

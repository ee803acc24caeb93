#pragma once

#include <QImage>
#include <QMap>
#include <QString>

// The place where the panel stands: what a plan may ask of it around an exchange. An action is one
// text, a verb and its argument:
//   powercycle              the panel is switched off and on and has booted
//   screenshot NAME         the screen is kept in the report
//   look red|green|blue|white|dark|bands|RRGGBB   the screen must look so
//   touch calibrate|calibrate3|check   all targets of the passes that the request started
//   touch press X Y, touch release     a finger is put on that pixel and stays
//   plug usb, unplug usb, plug sd, unplug sd
//   fault set NAME[:ARGUMENT], fault clear NAME
//   ask TEXT                a person confirms it
class Stand {
public:
    virtual ~Stand() = default;
    // The serial device or pty of the PC link at a level (protocol.h).
    virtual QString port(int level) const = 0;
    // Empty if it was done, else what went wrong.
    virtual QString act(const QString &verb, const QString &argument) = 0;
    // Screens kept by "screenshot", by name.
    QMap<QString, QImage> screens;
};

// What is wrong with an action's text, empty if nothing.
QString actionFault(const QString &action);

// Runs an action on a stand.
QString perform(Stand &stand, const QString &action);

// A real panel: a person does what the plan asks and confirms it on the terminal.
class TerminalStand : public Stand {
public:
    // `unattended` takes every confirmation as given.
    TerminalStand(const QString &port, bool unattended)
        : port_(port)
        , unattended_(unattended)
    {
    }
    QString port(int) const override
    {
        return port_;
    }
    QString act(const QString &verb, const QString &argument) override;

private:
    QString port_;
    bool unattended_;
};

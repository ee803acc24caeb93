#pragma once

#include "fixture/pfvpstand.h"

#include <QtTest>

// Counters as a text: "pass/fail" an item, "-1/-1" where the screen has no figure.
inline QByteArray text(const PfvpCounts &counts)
{
    QByteArrayList items;
    for (const PfvpCount &count : counts)
        items << QByteArray::number(count.pass) + '/' + QByteArray::number(count.fail);
    return items.join(' ');
}

inline QByteArray textOfAll(int items, const char *each)
{
    return QByteArrayList(QVector<QByteArray>(items, each).toList()).join(' ');
}

// A part of a screen: where its base line begins, what it says, its font size and colour.
struct ScreenText {
    QPoint at;
    QString text;
    int points;
    QColor pen;
};

// What the items are called on the screens, misspelling included.
inline const QStringList selfTestItems = {
    "1. 5V",         "2. 3.3V",       "3. Batery",     "4. RTC",        "5. COM1 RS232",
    "6. COM1 RS485", "7. COM2 RS485", "8. USB Host",   "9. USB Slave",  "10.SRAM",
    "11.SDRAM(DDR)", "12.LCD Show R", "13.LCD Show G", "14.LCD Show B", "15.TouchPanel",
    "16.BackLight",  "17.Buzzer"};
inline const QStringList emiItems = {"1. COM1 RS232", "2. COM1 RS485", "3. COM2 RS485",
                                     "4. USB Host", "5. USB Slave"};

// The headers and items of a table, apart from its figures; `x` and `separator` are its columns.
inline QVector<ScreenText> tableTexts(int x, int separator, const QStringList &items)
{
    QVector<ScreenText> texts{{{x, 80}, "|  Test Case", 14, QColor(0, 128, 0)},
                              {{separator, 80}, "|   Pass   |   Fail   |", 14, QColor(0, 128, 0)}};
    for (int i = 0; i < items.size(); ++i) {
        const int y = 110 + 30 * i;
        texts << ScreenText{{x, y}, items[i], 14, Qt::black}
              << ScreenText{{separator, y}, ":", 14, Qt::black};
    }
    return texts;
}

// Those that the screen does not show as they must be.
inline QStringList missingOn(const QImage &screen, const QVector<ScreenText> &texts)
{
    QStringList missing;
    for (const ScreenText &text : texts) {
        if (!PfvpOperator::shows(screen, text.at, text.text, text.points, text.pen))
            missing << text.text;
    }
    return missing;
}

// Longest wait for a cycle's end: the period, the rest of a cycle, and a busy machine.
constexpr int CycleMs = 90000;

// Starts a table's cycles, stops them after one and says what became of each item: 'p' passed,
// 'f' failed, '-' neither, '?' when a second cycle had begun and judged otherwise.
inline QByteArray cycle(PfvpOperator &person, PfvpTable table, int judged, const QString &start,
                        const QString &stop)
{
    const PfvpCounts before = person.counts(table);
    person.press(start, CycleMs);
    person.countsAfter(table, sumOf(before) + judged, CycleMs);
    person.press(stop, CycleMs);
    if (!person.sees(start, CycleMs))
        return "does not stop";
    const PfvpCounts after = person.counts(table);
    QByteArray items;
    for (int i = 0; i < after.size(); ++i) {
        const bool passed = after[i].pass > before[i].pass, failed = after[i].fail > before[i].fail;
        items += passed && failed ? '?' : passed ? 'p' : failed ? 'f' : '-';
    }
    return items;
}

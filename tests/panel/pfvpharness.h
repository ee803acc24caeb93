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

// The headers and items of a table, apart from its figures; `x` and `separator` are its columns.
inline QVector<ScreenText> tableTexts(int x, int separator, const QString *items, int count)
{
    QVector<ScreenText> texts{{{x, 80}, "|  Test Case", 14, QColor(0, 128, 0)},
                              {{separator, 80}, "|   Pass   |   Fail   |", 14, QColor(0, 128, 0)}};
    for (int i = 0; i < count; ++i) {
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
constexpr int CycleMs = 45000;

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

// Longest wait for a cycle's end: the period, the rest of a cycle, and a busy machine.
constexpr int CycleMs = 45000;

#pragma once

#include <QString>

#include <stdexcept>

// Anything that keeps the bench from working. The text names what is wrong and what helps.
class BenchError : public std::runtime_error {
public:
    explicit BenchError(const QString &text)
        : std::runtime_error(text.toStdString())
    {
    }
};

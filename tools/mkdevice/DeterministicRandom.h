#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>

// A seeded generator (SplitMix64) whose sequence is the same on every platform and compiler,
// unlike the standard distributions: the same seed must give the same phone, byte for byte.
class DeterministicRandom {
public:
    explicit DeterministicRandom(uint64_t seed) : m_state(seed) {}

    uint64_t next()
    {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }

    // A number in [0, bound); bound must be positive.
    uint64_t below(uint64_t bound) { return next() % bound; }
    int64_t between(int64_t low, int64_t high) { return low + int64_t(below(uint64_t(high - low + 1))); }
    // True with the given probability in percent.
    bool chance(double percent) { return double(next() >> 11) * 0x1.0p-53 * 100.0 < percent; }
    double fraction() { return double(next() >> 11) * 0x1.0p-53; }

    // An independent stream for one purpose, so that adding draws to one part of the phone does
    // not shift every other part.
    DeterministicRandom fork(uint64_t salt) const
    {
        DeterministicRandom mixer(m_state ^ (salt * 0xD1B54A32D192ED03ull));
        return DeterministicRandom(mixer.next());
    }

    QByteArray bytes(int count)
    {
        QByteArray result(count, Qt::Uninitialized);
        for (int i = 0; i < count; ++i)
            result[i] = char(next() & 0xFF);
        return result;
    }

    // An upper-case version 4 UUID, as Photos writes them.
    QString uuid()
    {
        const uint64_t high = (next() & 0xFFFFFFFFFFFF0FFFull) | 0x0000000000004000ull;
        const uint64_t low = (next() & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;
        static const char digits[] = "0123456789ABCDEF";
        QString text(36, QChar('-'));
        QChar* out = text.data();
        int at = 0;
        for (int i = 0; i < 32; ++i) {
            if (at == 8 || at == 13 || at == 18 || at == 23)
                ++at;
            const uint64_t word = i < 16 ? high : low;
            out[at++] = QLatin1Char(digits[(word >> (60 - 4 * (i % 16))) & 0xF]);
        }
        return text;
    }

private:
    uint64_t m_state;
};

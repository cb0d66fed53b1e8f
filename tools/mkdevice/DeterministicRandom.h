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
        QByteArray raw = bytes(16);
        raw[6] = char((raw[6] & 0x0F) | 0x40);
        raw[8] = char((raw[8] & 0x3F) | 0x80);
        const QString hex = QString::fromLatin1(raw.toHex().toUpper());
        return hex.mid(0, 8) + '-' + hex.mid(8, 4) + '-' + hex.mid(12, 4) + '-' + hex.mid(16, 4) + '-' + hex.mid(20);
    }

private:
    uint64_t m_state;
};

#pragma once

#include <cfloat>
#include <cmath>
#include <cstdint>

// The math library's exp, sin and cos may round differently from one C library, CPU
// feature set or version to the next (glibc even picks among implementations at run
// time). The kit generator must give the same bytes on every machine, so it computes
// the few transcendental values it needs with these functions, which use only IEEE
// additions, multiplications, divisions and exact scalings by powers of two. Together
// with -ffp-contract=off this makes every result a function of the inputs alone, as
// long as double arithmetic is evaluated in double precision (not on the x87 stack).
static_assert(FLT_EVAL_METHOD == 0, "the kit generator needs strict double evaluation");

/// Transcendental functions that round identically on every IEEE-754 machine, accurate
/// to a few units in the last place over the ranges the kit generator uses.
namespace tappix::PortableMath {

inline constexpr double kPi = 3.14159265358979311600;
inline constexpr double kTwoPi = 6.28318530717958623200;

/// e to the power x, for |x| < 700.
inline double exp(double x) {
    // x = k·ln2 + r with |r| ≤ ln2/2; ln2 split so that k·ln2Hi is exact.
    constexpr double kLn2Hi = 6.93147180369123816490e-01;
    constexpr double kLn2Lo = 1.90821492927058770002e-10;
    constexpr double kInvLn2 = 1.44269504088896338700e+00;
    const double kd = x * kInvLn2;
    const auto k = static_cast<std::int64_t>(kd < 0 ? kd - 0.5 : kd + 0.5);
    const double r = (x - static_cast<double>(k) * kLn2Hi) - static_cast<double>(k) * kLn2Lo;
    // Taylor series to r^14 in Horner form: error below 1e-17 for |r| ≤ 0.35.
    double sum = 1.0;
    for (int n = 14; n >= 1; --n)
        sum = 1.0 + r * sum / static_cast<double>(n);
    return std::ldexp(sum, static_cast<int>(k)); // exact scaling by 2^k
}

/// The natural logarithm of x, for finite x > 0.
inline double log(double x) {
    // x = m·2^e with m in [√½, √2); log m = 2·atanh(u), u = (m-1)/(m+1), |u| < 0.172.
    constexpr double kLn2 = 6.93147180559945286227e-01;
    constexpr double kSqrtHalf = 7.07106781186547572737e-01;
    int e = 0;
    double m = std::frexp(x, &e); // exact: m in [½, 1)
    if (m < kSqrtHalf) {
        m *= 2.0;
        --e;
    }
    const double u = (m - 1.0) / (m + 1.0);
    const double u2 = u * u;
    // atanh series to u^27: error below 1e-20.
    double sum = 1.0 / 27.0;
    for (int n = 25; n >= 1; n -= 2)
        sum = 1.0 / static_cast<double>(n) + u2 * sum;
    return 2.0 * u * sum + static_cast<double>(e) * kLn2;
}

/// x to the power y, for finite x > 0.
inline double pow(double x, double y) {
    return exp(y * log(x));
}

/// sin(x) and cos(x) together, for |x| < 1e6.
struct SinCos {
    double sin, cos;
};
inline SinCos sinCos(double x) {
    // Reduce to r in [-π/4, π/4] and a quadrant, with π/2 split in three parts.
    constexpr double kPio2Hi = 1.57079632673412561417e+00;
    constexpr double kPio2Mid = 6.07710050650619224932e-11;
    constexpr double kPio2Lo = 2.02226624879595063154e-21;
    constexpr double kTwoOverPi = 6.36619772367581382433e-01;
    const double qd = x * kTwoOverPi;
    const auto q = static_cast<std::int64_t>(qd < 0 ? qd - 0.5 : qd + 0.5);
    const double qf = static_cast<double>(q);
    const double r = ((x - qf * kPio2Hi) - qf * kPio2Mid) - qf * kPio2Lo;
    const double r2 = r * r;
    // Taylor series to r^17 and r^18: error below 1e-18 on the reduced range.
    double s = 1.0, c = 1.0;
    for (int n = 17; n >= 3; n -= 2)
        s = 1.0 - r2 * s / static_cast<double>(n * (n - 1));
    for (int n = 18; n >= 2; n -= 2)
        c = 1.0 - r2 * c / static_cast<double>(n * (n - 1));
    s *= r;
    switch (((q % 4) + 4) % 4) {
    case 0:
        return {s, c};
    case 1:
        return {c, -s};
    case 2:
        return {-s, -c};
    default:
        return {-c, s};
    }
}

/// 10 to the power dB/20: the linear gain of a level in decibels.
inline double gainOfDb(double db) {
    constexpr double kLn10Over20 = 0.11512925464970228420;
    return exp(db * kLn10Over20);
}

} // namespace tappix::PortableMath

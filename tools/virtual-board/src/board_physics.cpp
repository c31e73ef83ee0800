#include "board_physics.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ovex::vboard {
namespace {

constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

// The PID controller of a closed Peltier loop, with its outputs in percent of the driver's full
// drive; the error is the sensor's temperature above the set point, and a positive drive cools.
constexpr double kProportional = 10.0;  // % per degree of error
constexpr double kIntegral = 0.1;       // % per degree-second
constexpr double kDerivative = 20.0;    // % per degree per second of change
constexpr double kTermLimit = 100.0;
constexpr double kIntegralLimit = 1000.0;
// The element: its driver's full output gives 2.5 A through 1.6 ohms.
constexpr double kAmpsPerPercent = 0.025;
constexpr double kElementOhms = 1.6;

constexpr std::uint64_t kNoiseSeed = 0x4F5658424F415244ULL;

struct LoopNames {
    bool enabled;  // the board's Peltier enable (its tables name it) switches it too
    std::string_view set_point;
    bool closed;
    std::string_view output, p_term, i_term, d_term, integral, current, voltage;
};

// The OvexBoard kinds' one loop, and the NoBE's two drivers (the first holds the sensor).
constexpr std::array<LoopNames, 3> kLoops = {{
    {true, "PELTIER", true, "PELTIER_OUTPUT", "PELTIER_P_TERM", "PELTIER_I_TERM", "PELTIER_D_TERM",
     "PELTIER_I_ERR", "I_PELT", "U_PELT"},
    {false, "PELT1", true, "PELT1_OUTPUT", "PELT1_P_TERM", "PELT1_I_TERM", "PELT1_D_TERM",
     "PELT1_I_ERR", "I_PELT1", "U_PELT1"},
    {false, "PELT2", false, "PELT2_OUTPUT", "", "", "", "", "I_PELT2", "U_PELT2"},
}};

constexpr std::string_view kSensor = "TSENS_TEMP";
constexpr std::array<std::string_view, 3> kBiasVoltages = {"U_BIAS", "U_BIAS_PRE_FUSE",
                                                           "TPX_BIAS_U"};
constexpr std::array<std::string_view, 2> kBiasCurrents = {"I_BIAS", "TPX_BIAS_I"};

double Clamp(double value, double limit) {
    return std::clamp(value, -limit, limit);
}

std::uint64_t Mix(std::uint64_t x) {
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

}  // namespace

BoardPhysics::BoardPhysics(const ItemTables& tables)
    : m_roles(tables.monitors.size()), m_bias(FindItem(tables.states, "BIAS").value_or(kNone)) {
    const auto assign = [&](std::string_view name, Quantity quantity, std::size_t loop = 0) {
        if (const auto id = FindItem(tables.monitors, name); id && !name.empty()) {
            m_roles[*id] = {quantity, loop};
        }
    };
    // A supply's power-good flag reads exactly 1; its voltages and currents carry noise.
    for (const RailItem& rail : tables.power.rails) {
        for (const std::string& monitor : rail.monitors) {
            if (!monitor.starts_with("PG_")) {
                assign(monitor, Quantity::kNoisy);
            }
        }
    }
    for (const std::string_view name : kBiasVoltages) {
        assign(name, Quantity::kBiasVoltage);
    }
    for (const std::string_view name : kBiasCurrents) {
        assign(name, Quantity::kBiasCurrent);
    }
    const auto sensor = FindItem(tables.monitors, kSensor);
    m_ambient = sensor ? tables.monitors[*sensor].value : 25.0;
    m_temperature = m_ambient;
    for (const LoopNames& names : kLoops) {
        const auto set_point = FindItem(tables.states, names.set_point);
        const std::string& enable_name = tables.power.peltier_enable;
        const auto enable = names.enabled && !enable_name.empty()
                                ? FindItem(tables.states, enable_name)
                                : std::nullopt;
        if (!set_point || (names.enabled && !enable_name.empty() && !enable)) {
            continue;
        }
        // Only the first closed loop has the sensor to hold.
        const bool closed = names.closed && sensor &&
                            std::none_of(m_loops.begin(), m_loops.end(),
                                         [](const Loop& loop) { return loop.closed; });
        const std::size_t loop = m_loops.size();
        m_loops.push_back({enable.value_or(kNone), *set_point, closed});
        assign(names.output, Quantity::kOutput, loop);
        assign(names.p_term, Quantity::kPTerm, loop);
        assign(names.i_term, Quantity::kITerm, loop);
        assign(names.d_term, Quantity::kDTerm, loop);
        assign(names.integral, Quantity::kIntegral, loop);
        assign(names.current, Quantity::kCurrent, loop);
        assign(names.voltage, Quantity::kVoltage, loop);
    }
    assign(kSensor, Quantity::kTemperature);
}

bool BoardPhysics::IsRunning(const Loop& loop, const std::vector<int>& states) const {
    // A set point of 0 is off, whatever the enable.
    return states[loop.set_point] != 0 && (loop.enable == kNone || states[loop.enable] != 0);
}

void BoardPhysics::Advance(double seconds, const std::vector<int>& states) {
    if (!(seconds >= 0.0) || !std::isfinite(seconds)) {
        throw std::invalid_argument(
            "The board's clock moves on only by a finite time, not negative.");
    }
    // The sensor relaxes towards the set point of its running loop, else towards ambient; the
    // loop integrates the error of that exponential exactly.
    const double decay = std::exp(-seconds / kThermalTimeConstant);
    double target = m_ambient;
    for (Loop& loop : m_loops) {
        if (!loop.closed) {
            continue;
        }
        if (!IsRunning(loop, states)) {
            loop.integral = 0.0;
            continue;
        }
        target = states[loop.set_point] / 10.0;
        loop.integral =
            Clamp(loop.integral + (m_temperature - target) * kThermalTimeConstant * (1.0 - decay),
                  kIntegralLimit);
    }
    m_temperature = target + (m_temperature - target) * decay;

    if (m_bias != kNone) {
        const double step = kBiasSlewRate * seconds;
        const double set = states[m_bias];
        m_bias_voltage = std::clamp(set, m_bias_voltage - step, m_bias_voltage + step);
    }
    m_time += seconds;
}

void BoardPhysics::PowerOn() {
    for (Loop& loop : m_loops) {
        loop.integral = 0.0;
    }
}

void BoardPhysics::KeepHardware(const BoardPhysics& before) {
    m_time = before.m_time;
    m_temperature = before.m_temperature;
    m_bias_voltage = before.m_bias_voltage;
}

BoardPhysics::Terms BoardPhysics::TermsOf(const Loop& loop, const std::vector<int>& states) const {
    if (!IsRunning(loop, states)) {
        return {0.0, 0.0, 0.0, 0.0};
    }
    if (!loop.closed) {
        return {0.0, 0.0, 0.0, Clamp(states[loop.set_point], kTermLimit)};
    }
    // The error decays with the sensor, so its rate of change is -error / time constant.
    const double error = m_temperature - states[loop.set_point] / 10.0;
    const double p = Clamp(kProportional * error, kTermLimit);
    const double i = Clamp(kIntegral * loop.integral, kTermLimit);
    const double d = Clamp(-kDerivative * error / kThermalTimeConstant, kTermLimit);
    return {p, i, d, Clamp(p + i + d, kTermLimit)};
}

float BoardPhysics::Noise(std::size_t monitor) const {
    // The sample's number, kept within what a double counts exactly however long the board ran.
    const auto sample =
        static_cast<std::uint64_t>(std::fmod(std::floor(m_time / kNoisePeriod), 0x1.0p53));
    const std::uint64_t bits = Mix(kNoiseSeed ^ Mix(monitor) ^ Mix(sample + 1));
    const double unit = static_cast<double>(bits >> 11) * 0x1.0p-53;  // [0, 1)
    return static_cast<float>((2.0 * unit - 1.0) * kNoiseFraction);
}

float BoardPhysics::Measured(std::size_t monitor, float nominal,
                             const std::vector<int>& states) const {
    const Role& role = m_roles[monitor];
    const auto terms = [&] { return TermsOf(m_loops[role.loop], states); };
    switch (role.quantity) {
        case Quantity::kNominal:
            return nominal;
        case Quantity::kNoisy:
            return nominal * (1.0F + Noise(monitor));
        case Quantity::kBiasVoltage:
            return static_cast<float>(m_bias_voltage);
        case Quantity::kBiasCurrent:
            return static_cast<float>(kLeakagePerVolt * m_bias_voltage);
        case Quantity::kTemperature:
            return static_cast<float>(m_temperature);
        case Quantity::kOutput:
            return static_cast<float>(terms().output);
        case Quantity::kPTerm:
            return static_cast<float>(terms().p);
        case Quantity::kITerm:
            return static_cast<float>(terms().i);
        case Quantity::kDTerm:
            return static_cast<float>(terms().d);
        case Quantity::kIntegral:
            return static_cast<float>(m_loops[role.loop].integral);
        case Quantity::kCurrent:
            return static_cast<float>(kAmpsPerPercent * terms().output);
        case Quantity::kVoltage:
            return static_cast<float>(kElementOhms * kAmpsPerPercent * terms().output);
    }
    return nominal;
}

}  // namespace ovex::vboard

#pragma once

// What the board's analog monitors measure as time goes on: the sensor's temperature under the
// Peltier loop, the bias supply's output and leakage, and the switched supplies with their
// converters' noise. Time is the board's own clock, moved on explicitly, so that a reading
// depends only on the states and the time that passed, never on when the host asked.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ovex/vboard/item_tables.hpp"

namespace ovex::vboard {

class BoardPhysics {
public:
    // The sensor's first-order time constant under the Peltier element, in seconds.
    static constexpr double kThermalTimeConstant = 20.0;
    // The bias supply's output moves at most this fast, in volts per second.
    static constexpr double kBiasSlewRate = 10.0;
    // Leakage of the sensor under bias, in microamperes per volt.
    static constexpr double kLeakagePerVolt = 0.01;
    // A switched supply's monitor reads its nominal value within ± this fraction of it, one
    // sample per converter period, the same for the same board time.
    static constexpr double kNoiseFraction = 0.005;
    static constexpr double kNoisePeriod = 0.1;

    // Quantities whose names aren't on the board are left out.
    explicit BoardPhysics(const ItemTables& tables);

    // Moves the board's clock on by `seconds` (not negative) with the states held as they are.
    void Advance(double seconds, const std::vector<int>& states);
    // The controllers start anew, as after a reset; what the hardware holds (temperature, the
    // bias output's charge) stays.
    void PowerOn();
    // The hardware's state of `before` (its clock, the sensor's temperature and the bias
    // output), whose tables may differ.
    void KeepHardware(const BoardPhysics& before);

    // What monitor `id` measures now, given its `nominal` value and the states.
    float Measured(std::size_t monitor, float nominal, const std::vector<int>& states) const;

    double Time() const { return m_time; }

private:
    enum class Quantity {
        kNominal,      // a fixed value
        kNoisy,        // a switched supply: nominal with noise
        kBiasVoltage,  // the bias output
        kBiasCurrent,  // the leakage under bias
        kTemperature,  // the sensor under the Peltier element
        kOutput,       // a Peltier driver's output, percent
        kPTerm,
        kITerm,
        kDTerm,
        kIntegral,  // the loop's integrated error, degree-seconds
        kCurrent,   // the Peltier element's current, A
        kVoltage,   // and its voltage, V
    };
    struct Role {
        Quantity quantity = Quantity::kNominal;
        std::size_t loop = 0;
    };
    // A Peltier driver: a closed loop holds the sensor at its set point (tenths of a degree); an
    // open one drives its output at its set value (percent). A positive drive cools. It runs while
    // its set value is non-zero and its enable, where the board has one, is on.
    struct Loop {
        std::size_t enable;     // state id, or none
        std::size_t set_point;  // state id
        bool closed;
        double integral = 0.0;
    };
    struct Terms {
        double p, i, d, output;
    };

    bool IsRunning(const Loop& loop, const std::vector<int>& states) const;
    Terms TermsOf(const Loop& loop, const std::vector<int>& states) const;
    float Noise(std::size_t monitor) const;

    std::vector<Role> m_roles;  // by monitor id
    std::vector<Loop> m_loops;
    std::size_t m_bias = 0;  // the bias state's id, or none
    double m_ambient = 0.0;
    double m_time = 0.0;
    double m_temperature = 0.0;
    double m_bias_voltage = 0.0;
};

}  // namespace ovex::vboard

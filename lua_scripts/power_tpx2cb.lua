-- Timepix2 chip board on the OvexBoard: the Peltier controller, the frontend ADC and temperature
-- sensor, then the detector with its two 1.2 V rails. The backend unit comes up before this one
-- and goes down after it.
--
-- The order of the steps is a hardware constraint. Each function asks the board for its objects
-- at every call and keeps nothing between calls: all state lives on the board. A failure is
-- reported by the returned code; what was switched on before it stays on.

-- The 1.2 V rails get this many passes, a second apart, to rise.
local PG_ATTEMPTS = 6

local function failed(err)
    return err:value() ~= 0
end

-- Logs the failure of a step as an error and hands its code back.
local function abort(format, err)
    Log.error(string.format(format, tostring(err)))
    return err
end

-- One reading of a power-good monitor; a reading that fails counts as low.
local function power_good(monitors, monitor)
    local value = monitors:get_value(monitor)
    if type(value) ~= 'number' then
        Log.warn(string.format('Unable to read %s rail power good monitor - %s', monitor,
            tostring(value)))
        return false
    end
    return value > 0
end

-- Both rails are read in every pass, so that the log shows each one that can't be read.
local function wait_for_1v2_rails(monitors)
    for _ = 1, PG_ATTEMPTS do
        local analog_good = power_good(monitors, 'PG_1V2_A')
        local digital_good = power_good(monitors, 'PG_1V2_D')
        if analog_good and digital_good then
            return true
        end
        Std.sleep(1)
    end
    return false
end

local function powerup_unit()
    local states = Usb.VendorCmd.States.new(device)
    local monitors = Usb.VendorCmd.Monitors.new(device)
    local cmds = Usb.VendorCmd.Commands.new(device)

    -- Enabling the controller applies its default temperature of 35.0 degrees Celsius.
    local err = states:set_value('PELTIER_EN', 1)
    if failed(err) then
        return abort('Failed to configure Peltier temperature - %s', err)
    end
    Log.info('Peltier configuration: OK')

    err = cmds:invoke('ADC_INIT')
    if failed(err) then
        return abort('Failed initialize frontend ADC - %s.', err)
    end
    err = cmds:invoke('TSENS_RESET')
    if failed(err) then
        return abort('Failed to reset frontend temperature sensor - %s.', err)
    end

    err = states:set_value('DETECTOR_EN', 1)
    if failed(err) then
        return abort('Failed to enable the detector - %s.', err)
    end

    -- A chip without its 1.2 V rails is of no use: the power-up fails.
    if not wait_for_1v2_rails(monitors) then
        Log.error('Frontend 1V2 rails: FAIL')
        return Std.make_error_code(Std.Errc.timed_out)
    end
    Log.info('Frontend 1V2 rails: OK')
    return err
end

-- Bias and cooling off before the detector loses power.
local function powerdown_unit()
    local states = Usb.VendorCmd.States.new(device)

    local err = states:set_value('BIAS', 0)
    if failed(err) then
        return abort('Failed to disable bias voltage - %s', err)
    end
    err = states:set_value('PELTIER', 0)
    if failed(err) then
        return abort('Failed to turn off peltier - %s', err)
    end
    err = states:set_value('DETECTOR_EN', 0)
    if failed(err) then
        return abort('Failed to disable frontend +5V power rail - %s', err)
    end
    return Std.ErrorCode.new()
end

local function is_unit_powered()
    local states = Usb.VendorCmd.States.new(device)
    local monitors = Usb.VendorCmd.Monitors.new(device)

    -- The detector's rails take a moment to settle after a change.
    Std.sleep(1)

    local enabled = states:get_value('DETECTOR_EN')
    if type(enabled) ~= 'number' then
        Log.warn(string.format("Failed to read state '%s' - %s ", 'DETECTOR_EN', tostring(enabled)))
        return false
    end
    if enabled == 0 then
        return false
    end

    local supply = monitors:get_value('MONITOR_5V')
    if type(supply) ~= 'number' then
        Log.warn(string.format("Failed to read monitor '%s' - %s ", 'MONITOR_5V', tostring(supply)))
        return false
    end
    return supply > 0
end

return {
    powerup_unit = powerup_unit,
    powerdown_unit = powerdown_unit,
    is_unit_powered = is_unit_powered,
}

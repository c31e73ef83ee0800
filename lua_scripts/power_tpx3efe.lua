-- Timepix3 extended front end on the OvexBoard: the Peltier controller, the frontend +5 V rail
-- with its I/O expander, ADC and temperature sensor, then the chip's rails. The backend unit
-- comes up before this one and goes down after it.
--
-- The order of the steps is a hardware constraint. Each function asks the board for its objects
-- at every call and keeps nothing between calls: all state lives on the board. A failure is
-- reported by the returned code; what was switched on before it stays on.

-- A power-good monitor gets this many readings, a second apart, to rise.
local PG_ATTEMPTS = 6

-- The unit counts as powered only while these states are on and these monitors read above 0.
local POWERED_STATES = { 'FRONTEND_EN', 'DETECTOR_EN' }
local POWERED_MONITORS = { 'MONITOR_5V', 'PG_1V8', 'PG_VDD', 'PG_VDDA', 'PG_FE_5V' }

local function failed(err)
    return err:value() ~= 0
end

-- Logs the failure of a step as an error and hands its code back.
local function abort(format, err)
    Log.error(string.format(format, tostring(err)))
    return err
end

-- Reads one power-good monitor until it reads 1 or more: 'OK', 'FAIL' when it stayed low,
-- 'UNKNOWN' when no reading succeeded.
local function wait_for_power_good(monitors, monitor)
    local status = 'UNKNOWN'
    for _ = 1, PG_ATTEMPTS do
        local value = monitors:get_value(monitor)
        if type(value) ~= 'number' then
            Log.warn(string.format('Unable to read %s rail power good monitor - %s', monitor,
                tostring(value)))
        elseif value >= 1 then
            return 'OK'
        else
            status = 'FAIL'
        end
        Std.sleep(1)
    end
    return status
end

local function log_rail_status(name, status)
    local line = string.format('%s rail: %s', name:sub(1, 1):upper() .. name:sub(2), status)
    if status == 'OK' then
        Log.info(line)
    elseif status == 'FAIL' then
        Log.error(line)
    else
        Log.warn(line)
    end
end

-- Switches a rail on and watches its power-good monitors in turn; the log line tells the state
-- of the last one. A rail that stays low is only reported: the sequence goes on, and the
-- power state check shows the fault.
local function enable_and_pg_check(states, monitors, args)
    local err = states:set_value(args.state, 1)
    if failed(err) then
        Log.error(string.format('Failed to enable the %s - %s', args.name, tostring(err)))
        return err
    end
    local status = 'UNKNOWN'
    for _, monitor in ipairs(args.monitors) do
        status = wait_for_power_good(monitors, monitor)
    end
    log_rail_status(args.name, status)
    return err
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

    err = enable_and_pg_check(states, monitors, {
        name = 'frontend power',
        state = 'FRONTEND_EN',
        monitors = { 'PG_FE_5V' },
    })
    if failed(err) then
        return err
    end

    -- The frontend's peripherals run from the +5 V rail.
    err = cmds:invoke('IO_EXP_INIT')
    if failed(err) then
        return abort('Failed initialize frontend I/O expander - %s.', err)
    end
    err = cmds:invoke('ADC_INIT')
    if failed(err) then
        return abort('Failed initialize frontend ADC - %s.', err)
    end
    err = cmds:invoke('TSENS_RESET')
    if failed(err) then
        return abort('Failed to reset frontend temperature sensor - %s.', err)
    end

    return enable_and_pg_check(states, monitors, {
        name = 'chip power',
        state = 'DETECTOR_EN',
        monitors = { 'PG_1V8', 'PG_VDD', 'PG_VDDA' },
    })
end

-- Bias and cooling off before the chip loses power, the +5 V rail last.
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
        return abort('Failed to disable chip power rail - %s', err)
    end
    err = states:set_value('FRONTEND_EN', 0)
    if failed(err) then
        return abort('Failed to disable frontend +5V power rail - %s', err)
    end
    return Std.ErrorCode.new()
end

local function state_is_on(states, name)
    local value = states:get_value(name)
    if type(value) ~= 'number' then
        Log.warn(string.format("Failed to read state '%s' - %s ", name, tostring(value)))
        return false
    end
    return value ~= 0
end

local function monitor_is_up(monitors, name)
    local value = monitors:get_value(name)
    if type(value) ~= 'number' then
        Log.warn(string.format("Failed to read monitor '%s' - %s ", name, tostring(value)))
        return false
    end
    return value > 0
end

local function is_unit_powered()
    local states = Usb.VendorCmd.States.new(device)
    local monitors = Usb.VendorCmd.Monitors.new(device)
    for _, name in ipairs(POWERED_STATES) do
        if not state_is_on(states, name) then
            return false
        end
    end
    for _, name in ipairs(POWERED_MONITORS) do
        if not monitor_is_up(monitors, name) then
            return false
        end
    end
    return true
end

return {
    powerup_unit = powerup_unit,
    powerdown_unit = powerdown_unit,
    is_unit_powered = is_unit_powered,
}

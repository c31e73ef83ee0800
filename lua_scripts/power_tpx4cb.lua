-- Timepix4 chip board on the OvexBoard: the Peltier controller, the ADCs of both boards, the
-- chip's power control module and temperature sensor, then the chip's rails. The backend unit
-- comes up before this one and goes down after it.
--
-- The order of the steps is a hardware constraint. Each function asks the board for its objects
-- at every call and keeps nothing between calls: all state lives on the board. A failure is
-- reported by the returned code; what was switched on before it stays on.

-- A power-good monitor gets this many readings, a second apart, to rise.
local PG_ATTEMPTS = 6

-- Peltier set point in tenths of a degree Celsius: 35.0 degrees.
local PELTIER_SET_POINT = 350

-- The power-good monitors of the chip's rails.
local CHIP_POWER_GOOD = { 'PG_VDD', 'PG_VDDA', 'PG_PLL', 'PG_PST', 'PG_GWT', 'PG_1V8A', 'PG_1V8D' }

-- TPX4_POWER_UP payload: a single 0 byte switches the chip's rails off.
local CHIP_POWER_OFF = string.char(0x00)

local function failed(err)
    return err:value() ~= 0
end

-- Logs the failure of a step as an error and hands its code back.
local function abort(format, err)
    Log.error(string.format(format, tostring(err)))
    return err
end

-- Sends a command with a payload. The span doesn't own its bytes, so the slab is held in a local
-- until the command is done.
local function invoke_out(cmds, name, payload)
    local slab = Std.MemSlab.new(payload)
    local err = cmds:invoke_out(name, slab:as_span())
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

    local err = states:set_value('PELTIER', PELTIER_SET_POINT)
    if failed(err) then
        return abort('Failed to configure Peltier temperature - %s', err)
    end
    Log.info('Peltier configuration: OK')

    err = cmds:invoke('ADC_INIT_OVBD')
    if failed(err) then
        return abort('Failed to reset OvexBoard ADC - %s', err)
    end
    err = cmds:invoke('ADC_INIT_CB')
    if failed(err) then
        return abort('Failed to reset chipboard ADC - %s', err)
    end
    err = cmds:invoke('PWR_CTRL_INIT')
    if failed(err) then
        return abort('Failed to initialize TPX4 power control module - %s', err)
    end
    err = cmds:invoke('TSENS_RESET')
    if failed(err) then
        return abort('Failed to reset frontend temperature sensor - %s.', err)
    end

    -- A failure to switch the rails on has been logged on the spot; the closing line is written
    -- either way and the code of this step is the result.
    err = enable_and_pg_check(states, monitors, {
        name = 'chip power',
        state = 'DETECTOR_EN',
        monitors = CHIP_POWER_GOOD,
    })
    Log.info('TPX4 chipboard successfully powered up.')
    return err
end

-- Bias and cooling off first. The chip's rails go off through the power control module, which
-- leaves DETECTOR_EN as it is.
local function powerdown_unit()
    local states = Usb.VendorCmd.States.new(device)
    local cmds = Usb.VendorCmd.Commands.new(device)

    local err = states:set_value('BIAS', 0)
    if failed(err) then
        return abort('Failed to disable bias voltage - %s', err)
    end
    err = states:set_value('PELTIER', 0)
    if failed(err) then
        return abort('Failed to turn off peltier - %s', err)
    end
    err = invoke_out(cmds, 'TPX4_POWER_UP', CHIP_POWER_OFF)
    if failed(err) then
        return abort('Failed to initialize TPX4 power control module - %s', err)
    end
    return Std.ErrorCode.new()
end

-- The rails get time to settle: a second before the check starts and after every monitor, so
-- a fully powered unit takes at least eight seconds to answer.
local function is_unit_powered()
    local states = Usb.VendorCmd.States.new(device)
    local monitors = Usb.VendorCmd.Monitors.new(device)

    Std.sleep(1)

    local enabled = states:get_value('DETECTOR_EN')
    if type(enabled) ~= 'number' then
        Log.warn(string.format("Failed to read state '%s' - %s ", 'DETECTOR_EN', tostring(enabled)))
        return false
    end
    if enabled == 0 then
        return false
    end

    for _, name in ipairs(CHIP_POWER_GOOD) do
        local value = monitors:get_value(name)
        if type(value) ~= 'number' then
            Log.warn(string.format("Failed to read monitor '%s' - %s ", name, tostring(value)))
            return false
        end
        if value <= 0 then
            return false
        end
        Std.sleep(1)
    end
    return true
end

return {
    powerup_unit = powerup_unit,
    powerdown_unit = powerdown_unit,
    is_unit_powered = is_unit_powered,
}

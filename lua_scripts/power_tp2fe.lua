-- TP2FE, the Timepix2 front end of the NoBE: the front end's power rail and temperature sensor,
-- the chip enable and the Timepix 1.2 V rails, then the front end's serial flash interface and
-- XADC. The NoBE backend comes up before this unit and goes down after it.
--
-- The order of the steps is a hardware constraint. Each function asks the board for its objects
-- at every call and keeps nothing between calls: all state lives on the board. A failure is
-- reported by the returned code; what was switched on before it stays on.

-- A power-good monitor gets this many readings, a second apart, to rise.
local PG_ATTEMPTS = 6

-- The unit counts as powered only while these states are on and these monitors read nonzero.
local POWERED_STATES = { 'DETECTOR_EN', 'CHIP_EN', 'TPX_1V2' }
local POWERED_MONITORS = { 'PG_DETECTOR', 'PG_1V2', 'PG_TPX_1V2_D', 'PG_TPX_1V2_A' }

local function failed(err)
    return err:value() ~= 0
end

-- Logs the failure of a step as an error and hands its code back.
local function abort(format, err)
    Log.error(string.format(format, tostring(err)))
    return err
end

local function log_version(versions, name)
    local version = versions:get_value(name)
    if type(version) ~= 'string' then
        Log.error(string.format("Failed to read version of '%s' - %s", name, tostring(version)))
        return version
    end
    Log.info(string.format("Component '%s': %s", name, version))
    return Std.ErrorCode.new()
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

-- Switches a rail on and watches its power-good monitor. A rail that stays low is only
-- reported: the sequence goes on, and the power state check shows the fault.
local function enable_and_pg_check(states, monitors, args)
    local err = states:set_value(args.state, 1)
    if failed(err) then
        Log.error(string.format('Failed to enable the %s - %s', args.name, tostring(err)))
        return err
    end
    log_rail_status(args.name, wait_for_power_good(monitors, args.monitor))
    return err
end

-- A step up to the XADC failed and has logged why; the sequence's own line follows.
local function sequence_failed(err)
    Log.error('TP2FE power up sequence failed.')
    return err
end

local function powerup_failed(format, err)
    abort(format, err)
    return sequence_failed(err)
end

local function powerup_unit()
    local states = Usb.VendorCmd.States.new(device)
    local monitors = Usb.VendorCmd.Monitors.new(device)
    local cmds = Usb.VendorCmd.Commands.new(device)
    local versions = Usb.VendorCmd.Versions.new(device)

    local err = enable_and_pg_check(states, monitors, {
        name = 'frontend power',
        state = 'DETECTOR_EN',
        monitor = 'PG_DETECTOR',
    })
    if failed(err) then
        return sequence_failed(err)
    end

    err = cmds:invoke('TSENS_RESET')
    if failed(err) then
        return powerup_failed('Failed to reset frontend thermal sensor - %s', err)
    end

    err = enable_and_pg_check(states, monitors, {
        name = 'chip enable',
        state = 'CHIP_EN',
        monitor = 'PG_1V2',
    })
    if failed(err) then
        return sequence_failed(err)
    end

    err = enable_and_pg_check(states, monitors, {
        name = 'Timepix 1V2 power',
        state = 'TPX_1V2',
        monitor = 'PG_TPX_1V2_D',
    })
    if failed(err) then
        return sequence_failed(err)
    end

    err = cmds:invoke('XSPI1_INIT')
    if failed(err) then
        return powerup_failed('Failed to initialize frontend XSPI - %s', err)
    end
    Log.info('Frontend XSPI init: OK')

    err = cmds:invoke('XADC1_INIT')
    if failed(err) then
        return powerup_failed('Failed to initialize frontend XADC - %s', err)
    end
    Log.info('Frontend XADC init: OK')

    -- The versions of the front end and of its chip close the sequence.
    err = log_version(versions, 'TP2FE')
    if failed(err) then
        return err
    end
    err = log_version(versions, 'TPX2')
    if failed(err) then
        return err
    end
    Log.info('TP2FE successfully powered up.')
    return err
end

-- Bias and cooling off before the front end loses power; their results are not checked, as
-- switching the power off matters more.
local function powerdown_unit()
    local states = Usb.VendorCmd.States.new(device)

    Log.info('TP2FE power down sequence started.')
    states:set_value('BIAS', 0)
    states:set_value('PELT1', 0)

    local err = states:set_value('DETECTOR_EN', 0)
    if failed(err) then
        return abort('Failed to disable TP2FE power: %s', err)
    end
    Log.info('TP2FE successfully powered down.')
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
    return value ~= 0
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

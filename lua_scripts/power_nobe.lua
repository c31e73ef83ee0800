-- NoBE backend: the board itself, from its DC/DC converter rails and DDR supply up to a
-- configured FPGA with its serial flash interface and XADC running, then its two Peltier
-- elements. The TP2FE front end is the second power unit and has a script of its own.
--
-- The order of the steps is a hardware constraint: the rails come up in a fixed order and
-- several commands only work once the ones before them have run. Each function asks the board
-- for its objects at every call and keeps nothing between calls: all state lives on the board.
-- A failure is reported by the returned code; what was switched on before it stays on.

-- The DC/DC converter rails in the order in which they come up.
local DCDC_RAILS = { 'DC_1V0', 'DC_1V8', 'DC_2V5', 'DC_3V3' }

-- A power-good monitor gets this many readings, a second apart, to rise.
local PG_ATTEMPTS = 6

-- XSPI0 gets this many tries, a second apart.
local XSPI_ATTEMPTS = 6

-- Loading or re-initialising the FPGA takes far longer than the default command timeout.
local FPGA_TIMEOUT_S = 40

-- FPGA_RECONF payloads, a 32-bit little-endian value: 1 forces the FPGA to initialise again,
-- 0 switches it off.
local FPGA_FORCE_INIT = string.char(0x01, 0x00, 0x00, 0x00)
local FPGA_OFF = string.char(0x00, 0x00, 0x00, 0x00)

-- Peltier element 1 holds a temperature, in tenths of a degree Celsius: 37.0 degrees.
local PELT1_SET_POINT = 370
-- Peltier element 2, the external one, is driven at a fixed power in percent; positive cools.
local PELT2_POWER = 40

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
local function invoke_out(cmds, name, payload, timeout)
    local slab = Std.MemSlab.new(payload)
    local err
    if timeout then
        err = cmds:invoke_out(name, slab:as_span(), timeout)
    else
        err = cmds:invoke_out(name, slab:as_span())
    end
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

-- Switches a DC/DC rail on; a refused write gets one more try and the second answer is final.
-- This unit only ever switches its rails on: its power-down leaves them as they are.
local function set_with_retry(name, states)
    local err = states:set_value(name, 1)
    if failed(err) then
        err = states:set_value(name, 1)
    end
    return err
end

local function power_up_dcdc(states)
    for _, rail in ipairs(DCDC_RAILS) do
        local err = set_with_retry(rail, states)
        if failed(err) then
            Log.error(string.format("Failed to set state '%s' - %s ", rail, tostring(err)))
            return err
        end
    end
    return Std.ErrorCode.new()
end

-- True when all DC/DC rails are on. A rail that can't be read leaves the board's state unknown,
-- and guessing would either skip the FPGA configuration or pulse the main power reset under a
-- running board, so it raises an error instead.
local function is_powered_dcdc(states)
    for _, rail in ipairs(DCDC_RAILS) do
        local value = states:get_value(rail)
        if type(value) ~= 'number' then
            local message = string.format("Failed to read state '%s' - %s ", rail, tostring(value))
            Log.error(message)
            error(message)
        end
        if value == 0 then
            return false
        end
    end
    return true
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
-- reported: the sequence goes on.
local function enable_and_pg_check(states, monitors, args)
    local err = states:set_value(args.state, 1)
    if failed(err) then
        Log.error(string.format('Failed to enable the %s - %s', args.name, tostring(err)))
        return err
    end
    log_rail_status(args.name, wait_for_power_good(monitors, args.monitor))
    return err
end

-- A step from the DC/DC rails to the XADC failed and has logged why; the sequence's own line
-- follows.
local function sequence_failed(err)
    Log.error('Backend power up sequence failed.')
    return err
end

local function powerup_failed(format, err)
    abort(format, err)
    return sequence_failed(err)
end

-- Cold board, rails off: pulse the main power reset, bring up the DC/DC rails and the DDR
-- supply, reset the bias DAC, then load the FPGA.
local function configure_fpga_cold(states, monitors, cmds)
    cmds:invoke('MAIN_PWR_RESET') -- a reset pulse; its answer tells nothing

    local err = power_up_dcdc(states)
    if failed(err) then
        return powerup_failed('Failed to power up the DC/DC converter - %s', err)
    end
    Log.info('Main power reset: OK')

    err = enable_and_pg_check(states, monitors, {
        name = 'DDR power',
        state = 'DDR_PWR_EN',
        monitor = 'PG_DDR_PWR',
    })
    if failed(err) then
        return sequence_failed(err)
    end

    err = cmds:invoke('BIAS_DAC_RESET')
    if failed(err) then
        return powerup_failed('Failed to reset bias DAC - %s', err)
    end

    err = cmds:invoke('FPGA_CONF', FPGA_TIMEOUT_S)
    if failed(err) then
        return powerup_failed('Failed to configure FPGA - %s', err)
    end
    return err
end

-- Warm board, rails already on: the FPGA may hold an old state, so force it to initialise again.
local function configure_fpga_warm(cmds)
    local err = invoke_out(cmds, 'FPGA_RECONF', FPGA_FORCE_INIT, FPGA_TIMEOUT_S)
    if failed(err) then
        return powerup_failed('Failed to reconfigure FPGA - %s', err)
    end
    return err
end

-- Every refused try is logged and followed by a second's wait, the last one too.
local function init_xspi(cmds)
    local err
    for _ = 1, XSPI_ATTEMPTS do
        err = cmds:invoke('XSPI0_INIT')
        if not failed(err) then
            return err
        end
        Log.warn(string.format('Unable to initialize XSPI0 - %s', tostring(err)))
        Std.sleep(1)
    end
    return powerup_failed('Failed to initialize XSPI0 - %s', err)
end

local function powerup_unit()
    local states = Usb.VendorCmd.States.new(device)
    local monitors = Usb.VendorCmd.Monitors.new(device)
    local cmds = Usb.VendorCmd.Commands.new(device)
    local versions = Usb.VendorCmd.Versions.new(device)

    Log.info('NoBE power up sequence started.')

    -- Nothing is switched before the USB controller has answered.
    local err = log_version(versions, 'FX3_FW')
    if failed(err) then
        return err
    end

    -- Whatever draws from the rails goes off before they are touched. These writes are not
    -- checked: a board that doesn't answer fails at the next step that is.
    states:set_value('PELT1', 0)
    states:set_value('PELT2', 0)
    states:set_value('DETECTOR_EN', 0)
    states:set_value('GPIF_EN', 0)
    states:set_value('MAIN_CLK', 0)

    if is_powered_dcdc(states) then
        err = configure_fpga_warm(cmds)
    else
        err = configure_fpga_cold(states, monitors, cmds)
    end
    if failed(err) then
        return err
    end

    err = states:set_value('GPIF_EN', 1)
    if failed(err) then
        return powerup_failed('Failed to enable GPIF - %s', err)
    end
    err = states:set_value('MAIN_CLK', 1)
    if failed(err) then
        return powerup_failed('Failed to enable main clock - %s', err)
    end

    err = init_xspi(cmds)
    if failed(err) then
        return err
    end

    err = cmds:invoke('XADC0_INIT')
    if failed(err) then
        return powerup_failed('Failed to initialize XADC0 - %s', err)
    end

    -- The board's own version closes the board's part of the sequence.
    err = log_version(versions, 'NOBE')
    if failed(err) then
        return err
    end
    Log.info('Backend successfully powered up.')

    -- The Peltier elements last, once the board runs.
    err = states:set_value('PELT1', PELT1_SET_POINT)
    if failed(err) then
        return abort('Failed to configure peltier 1 temperature - %s', err)
    end
    err = states:set_value('PELT2', PELT2_POWER)
    if failed(err) then
        return abort('Failed to configure peltier 2 power - %s', err)
    end
    Log.info('Peltier configuration: OK')
    return Std.ErrorCode.new()
end

-- The Peltier elements go off first; a failure there doesn't keep the rest of the board on.
-- Then the clock, the GPIF and the FPGA.
local function powerdown_unit()
    local states = Usb.VendorCmd.States.new(device)
    local cmds = Usb.VendorCmd.Commands.new(device)

    Log.info('NoBE BE power down sequence started.')

    local err = states:set_value('PELT1', 0)
    if failed(err) then
        Log.warn(string.format('Failed to disable peltier 1 - %s', tostring(err)))
    end
    err = states:set_value('PELT2', 0)
    if failed(err) then
        Log.warn(string.format('Failed to disable peltier 2 - %s', tostring(err)))
    end

    err = states:set_value('MAIN_CLK', 0)
    if failed(err) then
        return abort('Set value 0 to state MAIN_CLK failed with: %s', err)
    end
    err = states:set_value('GPIF_EN', 0)
    if failed(err) then
        return abort('Set value 0 to state GPIF_EN failed with: %s', err)
    end
    err = invoke_out(cmds, 'FPGA_RECONF', FPGA_OFF)
    if failed(err) then
        return abort('FPGA_RECONF disable failed with: %s', err)
    end

    Log.info('NoBE power down sequence successful.')
    return Std.ErrorCode.new()
end

local function state_is_on(states, name)
    local value = states:get_value(name)
    if type(value) ~= 'number' then
        Log.error(string.format("Failed to read state '%s' - %s ", name, tostring(value)))
        return false
    end
    return value ~= 0
end

-- A DC/DC rail that can't be read raises an error from is_powered_dcdc.
local function is_unit_powered()
    local states = Usb.VendorCmd.States.new(device)
    return state_is_on(states, 'MAIN_CLK') and state_is_on(states, 'GPIF_EN')
        and is_powered_dcdc(states)
end

return {
    powerup_unit = powerup_unit,
    powerdown_unit = powerdown_unit,
    is_unit_powered = is_unit_powered,
}

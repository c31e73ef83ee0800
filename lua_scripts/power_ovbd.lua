-- OvexBoard backend: the board itself, from its DC/DC converter rails up to a configured FPGA
-- with its clocks, serial flash interface, XADC and DACs running. The chip board is the second
-- power unit and has a script of its own.
--
-- The order of the steps is a hardware constraint: the rails come up in a fixed order and
-- several commands only work once the ones before them have run. Each function asks the board
-- for its objects at every call and keeps nothing between calls: all state lives on the board.
-- A failure is reported by the returned code; what was switched on before it stays on.

-- The DC/DC converter rails in the order in which they come up; they go down in reverse.
local DCDC_RAILS_UP = { 'DC_1V0', 'DC_1V8', 'DC_2V5', 'DC_3V3' }
local DCDC_RAILS_DOWN = { 'DC_3V3', 'DC_2V5', 'DC_1V8', 'DC_1V0' }

-- Loading or re-initialising the FPGA takes far longer than the default command timeout.
local FPGA_TIMEOUT_S = 40

-- FPGA_RECONF payload: 1 as a 32-bit little-endian value forces the FPGA to initialise again.
local FPGA_FORCE_INIT = string.char(0x01, 0x00, 0x00, 0x00)

-- MAIN_CLK_SETUP payloads: the first selects the 200 MHz clock reference, the second configures
-- clocks 1 to 3.
local CLOCK_REFERENCE_200MHZ =
    string.char(0x60, 0x00, 0x1E, 0x00, 0x08, 0x04, 0x19, 0x00, 0x02, 0x00, 0x02, 0x00)
local CLOCKS_1_TO_3 = string.char(0x80, 0x00, 0x04, 0x00)

-- Whatever draws from the rails is switched off before they are touched.
local CONSUMERS_OFF = {
    { state = 'BIAS', failure = 'Failed to disable bias voltage - %s' },
    { state = 'PELTIER_EN', failure = 'Failed to disable peltier controller - %s' },
    { state = 'DETECTOR_EN', failure = 'Failed to disable detector - %s' },
    { state = 'GPIF_EN', failure = 'Failed to disable GPIF - %s' },
}

-- The unit counts as powered only while all of these are on.
local POWERED_STATES = {
    'MAIN_CLK', 'GPIF_EN', 'DDR_PWR_EN', 'DC_1V0', 'DC_1V8', 'DC_2V5', 'DC_3V3',
}

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

-- A refused write gets one more try; the second answer is final.
local function set_with_retry(name, states, value)
    local err = states:set_value(name, value)
    if failed(err) then
        err = states:set_value(name, value)
    end
    return err
end

local function set_dcdc_rails(states, rails, value)
    for _, rail in ipairs(rails) do
        local err = set_with_retry(rail, states, value)
        if failed(err) then
            Log.error(string.format("Failed to set state '%s' - %s ", rail, tostring(err)))
            return err
        end
    end
    return Std.ErrorCode.new()
end

local function power_up_dcdc(states)
    return set_dcdc_rails(states, DCDC_RAILS_UP, 1)
end

local function power_down_dcdc(states)
    return set_dcdc_rails(states, DCDC_RAILS_DOWN, 0)
end

-- True when all DC/DC rails are on. A rail that can't be read leaves the board's state unknown,
-- and guessing would either skip the FPGA configuration or pulse the main power reset under a
-- running board, so it raises an error instead.
local function is_powered_dcdc(states)
    for _, rail in ipairs(DCDC_RAILS_UP) do
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

-- Failures here are logged and the sequence goes on; only the last write, GPIF_EN, is worth a
-- warning as well.
local function switch_consumers_off(states)
    local err
    for _, consumer in ipairs(CONSUMERS_OFF) do
        err = states:set_value(consumer.state, 0)
        if failed(err) then
            Log.debug(string.format(consumer.failure, tostring(err)))
        end
    end
    if failed(err) then
        Log.warn(string.format('Power up sequence preparation failed - %s', tostring(err)))
    end
end

-- A step from the cable mux to the DACs failed: its own message, then the sequence's.
local function powerup_failed(format, err)
    abort(format, err)
    Log.error('Backend power up sequence failed.')
    return err
end

-- Cold board, rails off: pulse the main power reset, bring up the DC/DC rails and the DDR
-- supply, then load the FPGA.
local function configure_fpga_cold(states, cmds)
    cmds:invoke('MAIN_PWR_RESET') -- a reset pulse; its answer tells nothing

    local err = power_up_dcdc(states)
    if failed(err) then
        return powerup_failed('Failed to power up the DC/DC converter - %s', err)
    end
    Log.info('DC/DC converter power rails enabled.')

    err = states:set_value('DDR_PWR_EN', 1)
    if failed(err) then
        return powerup_failed('Failed to power up the DDR power - %s', err)
    end
    Log.info('DDR power rail enabled.')

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

local function powerup_unit()
    local states = Usb.VendorCmd.States.new(device)
    local cmds = Usb.VendorCmd.Commands.new(device)
    local versions = Usb.VendorCmd.Versions.new(device)

    -- Nothing is switched before the USB controller has answered.
    local err = log_version(versions, 'FX3_FW')
    if failed(err) then
        return err
    end

    switch_consumers_off(states)

    err = cmds:invoke('TUSB322')
    if failed(err) then
        return powerup_failed('USB cable mux initialization failed - %s', err)
    end
    Log.info('USB cable mux initialization: OK')

    if is_powered_dcdc(states) then
        err = configure_fpga_warm(cmds)
    else
        err = configure_fpga_cold(states, cmds)
    end
    if failed(err) then
        return err
    end
    Log.info('FPGA configuration completed.')

    err = states:set_value('GPIF_EN', 1)
    if failed(err) then
        return powerup_failed('Failed to enable GPIF - %s', err)
    end

    err = invoke_out(cmds, 'MAIN_CLK_SETUP', CLOCK_REFERENCE_200MHZ)
    if failed(err) then
        return powerup_failed('Failed to configure main clock - %s', err)
    end
    err = invoke_out(cmds, 'MAIN_CLK_SETUP', CLOCKS_1_TO_3)
    if failed(err) then
        return powerup_failed('Failed to configure main clock - %s', err)
    end
    err = states:set_value('MAIN_CLK', 1)
    if failed(err) then
        return powerup_failed('Failed to enable main clock - %s', err)
    end

    err = cmds:invoke('LOAD_EEPROM')
    if failed(err) then
        return powerup_failed('Failed to load values from EEPROM - %s', err)
    end

    err = cmds:invoke('XSPI_INIT')
    if failed(err) then
        return powerup_failed('Failed to initialize XSPI - %s', err)
    end
    Log.info('XSPI initialization completed.')

    err = cmds:invoke('XADC_INIT')
    if failed(err) then
        return powerup_failed('Failed to initialize XADC - %s', err)
    end

    err = cmds:invoke('DACX_INIT')
    if failed(err) then
        return powerup_failed('Failed to initialise DACX0502 - %s.', err)
    end

    -- The board's own version closes the sequence.
    err = log_version(versions, 'Ovexboard')
    if failed(err) then
        return err
    end
    Log.info('Backend successfully powered up.')
    return err
end

-- The reverse of the power-up: clock and GPIF first, then the rails in reverse order.
local function powerdown_unit()
    local states = Usb.VendorCmd.States.new(device)

    local err = states:set_value('MAIN_CLK', 0)
    if failed(err) then
        return abort('Failed to disable main clock - %s', err)
    end
    err = states:set_value('GPIF_EN', 0)
    if failed(err) then
        return abort('Failed to disable GPIF - %s', err)
    end
    err = power_down_dcdc(states)
    if failed(err) then
        return abort('Failed to power down the DC/DC converter - %s', err)
    end
    return Std.ErrorCode.new()
end

local function is_unit_powered()
    local states = Usb.VendorCmd.States.new(device)
    for _, name in ipairs(POWERED_STATES) do
        local value = states:get_value(name)
        if type(value) ~= 'number' then
            Log.error(string.format("Failed to read state '%s' - %s ", name, tostring(value)))
            return false
        end
        if value == 0 then
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

-- Reaches the board through `device` and writes to both outputs of `ovex script`: standard
-- output and the library's log.
local versions = Usb.VendorCmd.Versions.new(device)
print('FX3_FW ' .. versions:get_value('FX3_FW'))
Log.info('logged from the script')

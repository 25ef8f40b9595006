-- As much of Wireshark's Lua interface as the dissector needs, in plain Lua 5.2 to 5.4: it runs where Wireshark of that
-- Lua version is not installed.
--
--   lua fake_wireshark.lua DISSECTOR fields          the fields that it registers: filter, type and label, in their order
--   lua fake_wireshark.lua DISSECTOR udp [HEX...]    what it shows of datagrams
--
-- A datagram's items are lines of indentation, filter, place, length and value; problems are lines with "!".

local here = {}

local function numberOf(bytes, isLittle)
  local value = 0
  for i = 1, #bytes do
    value = value * 256 + bytes:byte(isLittle and #bytes + 1 - i or i)
  end
  return value
end

local function hexOf(bytes)
  return (bytes:gsub(".", function(char)
    return string.format("%02x", char:byte())
  end))
end

local function signed(value, bits)
  return value >= 2 ^ (bits - 1) and value - 2 ^ bits or value
end

local function realOf(bytes, isLittle)
  bytes = isLittle and bytes:reverse() or bytes
  local exponentBits, fractionBits = 8, 23
  if #bytes == 8 then
    exponentBits, fractionBits = 11, 52
  end
  local high = numberOf(bytes:sub(1, 2))
  local exponent = math.floor(high % 2 ^ 15 / 2 ^ (15 - exponentBits))
  local fraction = high % 2 ^ (15 - exponentBits) * 2 ^ (8 * (#bytes - 2)) + numberOf(bytes:sub(3))
  local sign = high >= 2 ^ 15 and -1 or 1
  local largest, bias = 2 ^ exponentBits - 1, 2 ^ (exponentBits - 1) - 1
  if exponent == largest then
    return fraction == 0 and sign / 0 or 0 / 0
  end
  local scale = (exponent == 0 and 1 or exponent) - bias - fractionBits
  return sign * (fraction + (exponent == 0 and 0 or 2 ^ fractionBits)) * 2 ^ scale
end

-- Tvb and TvbRange ----------------------------------------------------------------------------------------------------

local Range = {}
Range.__index = Range

local function newRange(bytes, at, length)
  assert(math.floor(at) == at and math.floor(length) == length, "a place is a whole number")
  assert(at >= 0 and length >= 0 and at + length <= #bytes, "Range is out of bounds")
  return setmetatable({ all = bytes, at = at, length = length, bytes = bytes:sub(at + 1, at + length) }, Range)
end

function Range:range(at, length)
  assert(at + length <= self.length, "Range is out of bounds")
  return newRange(self.all, self.at + at, length)
end
function Range:uint() return numberOf(self.bytes) end
function Range:le_uint() return numberOf(self.bytes, true) end
function Range:int() return math.floor(signed(numberOf(self.bytes), 8 * self.length)) end
function Range:le_int() return math.floor(signed(numberOf(self.bytes, true), 8 * self.length)) end
function Range:int64() return "int64 " .. hexOf(self.bytes) end
function Range:le_int64() return "int64 " .. hexOf(self.bytes:reverse()) end
function Range:float() return realOf(self.bytes) end
function Range:le_float() return realOf(self.bytes, true) end
function Range:string() return self.bytes end

local Tvb = {}
Tvb.__index = Tvb
function Tvb:captured_len() return #self.bytes end
function Tvb:reported_len() return #self.bytes end
function Tvb:raw(at, length) return self.bytes:sub((at or 0) + 1, at and at + length or nil) end
function Tvb:range(at, length) return newRange(self.bytes, at or 0, length or #self.bytes) end

-- TreeItem ------------------------------------------------------------------------------------------------------------

local Item = {}
Item.__index = Item

local WIDTHS = { uint8 = 1, uint16 = 2, uint32 = 4, int32 = 4, uint64 = 8, int64 = 8, float = 4, double = 8, char = 1 }

local function shown(field, range, value, isLittle)
  if value ~= nil then
    return type(value) == "number" and string.format("%.17g", value) or tostring(value)
  elseif field.type == "float" or field.type == "double" then
    assert(range.length == WIDTHS[field.type], "wrong length for a real number")
    return string.format("%.17g", isLittle and range:le_float() or range:float()):gsub("%-?nan", "nan")
  elseif WIDTHS[field.type] then
    assert(range.length >= 1 and range.length <= WIDTHS[field.type], "wrong length for a whole number")
  end
  return (isLittle and "little " or "") .. hexOf(range.bytes)
end

local function addItem(self, isLittle, field, range, value, label)
  assert(field, "a field is missing")
  if getmetatable(range) ~= Range then
    range, value, label = newRange("", 0, 0), range, value
  end
  local line = field.isProto and value or field.abbr .. " " .. range.at .. " " .. range.length .. " " ..
    shown(field, range, value, isLittle)
  here.lines[#here.lines + 1] = ("  "):rep(self.depth) .. line .. (label and " " .. label or "")
  return setmetatable({ depth = self.depth + 1, visible = true }, Item)
end

function Item:add(...) return addItem(self, false, ...) end
function Item:add_le(...) return addItem(self, true, ...) end
function Item:add_packet_field(field, range) return addItem(self, false, field, range), nil, nil end
function Item:set_generated() return self end
function Item:referenced() return true end
function Item:set_text(text)
  here.lines[#here.lines] = here.lines[#here.lines] .. " " .. text
  return self
end
function Item:add_proto_expert_info(problem, text)
  here.lines[#here.lines + 1] = ("  "):rep(self.depth) .. "! " .. problem.abbr .. " " .. text
  return self
end

-- What a script registers ---------------------------------------------------------------------------------------------

local function anyKey(make)
  return setmetatable({}, { __index = function(_, key)
    return make(key)
  end })
end

base = anyKey(function(key) return key end)
expert = { group = base, severity = base }
ENC_UTF_8 = 2
ProtoField = anyKey(function(kind)
  return function(abbr, name, _, values)
    assert(abbr:find("^[%w_.-]+$") and name ~= "", "not a field: " .. abbr)
    assert(not here.seen[abbr], abbr .. " is registered twice")
    here.seen[abbr] = true
    return { abbr = abbr, name = name, type = kind, values = values }
  end
end)
ProtoExpert = { new = function(abbr) return { abbr = abbr } end }
Pref = anyKey(function(kind)
  return function(_, default)
    return { kind = kind, default = default }
  end
end)
NSTime = { new = function(seconds, ns) return string.format("%d.%09d", seconds, ns) end }
Dir = { exists = function(path)
  local file = io.open(path)
  if not file then
    return nil
  end
  local _, _, code = file:read(1)
  file:close()
  return code == 21
end }
DissectorTable = { get = function()
  return { add = function() end, remove = function() end, add_for_decode_as = function() end }
end }
Listener = {}
function gui_enabled() return false end
function register_stat_cmd_arg() end

function Proto()
  local prefs = setmetatable({}, { __newindex = function(self, name, pref)
    rawset(self, name, pref.default)
  end })
  here.proto = { isProto = true, abbr = "md", prefs = prefs, register_heuristic = function() end }
  return here.proto
end

-- ---------------------------------------------------------------------------------------------------------------------

here.seen, here.lines = {}, {}
local arguments = { ... }
assert(loadfile(arguments[1]))()
if arguments[2] == "fields" then
  for _, field in ipairs(here.proto.fields) do
    print(field.abbr .. "\t" .. field.type .. "\t" .. field.name)
    if field.abbr == "md.record.id" then
      local ids = {}
      for id in pairs(field.values) do
        ids[#ids + 1] = id
      end
      table.sort(ids)
      for _, id in ipairs(ids) do
        print("id\t" .. id .. "\t" .. field.values[id])
      end
    end
  end
else
  for line in io.lines() do
    local bytes = line:gsub("%x%x", function(digits)
      return string.char(tonumber(digits, 16))
    end)
    here.lines = {}
    local pinfo = { number = 1, port_type = 3, cols = setmetatable({}, {
      __index = function() return "" end,
      __newindex = function(_, name, text)
        here.lines[#here.lines + 1] = name .. ": " .. text
      end,
    }) }
    here.proto.dissector(setmetatable({ bytes = bytes }, Tvb), pinfo, setmetatable({ depth = 0, visible = true }, Item))
    print(table.concat(here.lines, "\n") .. "\n")
  end
end

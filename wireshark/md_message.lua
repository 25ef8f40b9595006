-- Market-data messages (mInt, IterMap, MsgT) in Wireshark and tshark, 3.6 to 4.x.
--
-- One file, for a plugin folder of Wireshark: `mdmsg wireshark --install`, or copy it. docs/wireshark.md describes
-- filters, preferences and statistics.
--
-- The file has these parts:
--   1. Dictionary: which one, and how dictionary files are read
--   2. Walk: the records of a message as receivers see them, and what is wrong with them. Needs nothing of Wireshark.
--   3. Protocol: fields, preferences and expert information
--   4. Dissection: the walk as a tree, for UDP and TCP
--   5. Statistics
--
-- Received bytes are untrusted: everything is read from a Lua string whose length is checked first, and each step of
-- the walk moves on by at least one byte.

local byte, floor, format = string.byte, math.floor, string.format

-- ---------------------------------------------------------------------------------------------------------------------
-- 1. Dictionary

-- Type names by code. OPTI_PRICE is another name of INT.
local TYPE_NAMES = {
  [0] = "RAW", [1] = "CHAR", [2] = "INT", [3] = "SHORT", [4] = "FLOAT", [5] = "DOUBLE", [6] = "STRING", [7] = "VECTOR",
  [8] = "MSG_T", [9] = "DATE", [10] = "TIME", [11] = "FRACTION", [12] = "CHILD_MSG", [13] = "FOLDED_INT",
  [14] = "BUFFER", [16] = "UINT", [17] = "LONG_INT", [18] = "ULONG_INT", [19] = "INT64", [20] = "DATETIME",
  [22] = "EPOCH_NSEC",
}
local TYPE_CODES = { OPTI_PRICE = 2 }
for code, name in pairs(TYPE_NAMES) do
  TYPE_CODES[name] = code
end
local INT, STRING, BUFFER = 2, 6, 14

-- The types that messages carry, with the bytes of a value; 0 where it varies.
local VALUE_WIDTHS = { [1] = 1, [2] = 4, [4] = 4, [5] = 8, [6] = 0, [14] = 0, [19] = 8, [20] = 8, [22] = 8 }
-- The bytes that IterMap reserves for a value of a type without a length field.
local ITERMAP_WIDTHS = {
  [0] = 0, 1, 4, 2, 4, 8, 0, 0, 0, 4, 4, 12, 0, 0, 0, 4, 4, 4, 4, 8, 8, 0, 8, 0,
}

-- etc/field_map.txt, for systems that have no dictionary of their own.
local BUILT_IN_DICTIONARY = [[
SYMBOL                    1  STRING
EXCHANGE                  2  STRING
VENUE                     3  STRING
CURRENCY                  4  STRING
ISIN                      5  STRING
INSTRUMENT_ID             6  UINT
LOT_SIZE                  7  LONG_INT
TICK                      8  OPTI_PRICE
EXPIRY_DATE               9  DATE

MSG_KIND                 10  CHAR
SEQ                      11  INT64
EVENT_MS                 12  INT64
TXN_MS                   13  INT64
RECV_TIME                14  EPOCH_NSEC
SEND_TIME                15  EPOCH_NSEC
EXCH_TIME                16  DATETIME
SESSION_OPEN             17  TIME
CHANNEL                  18  SHORT
TRADING_STATUS           19  CHAR

BID                      22  DOUBLE
ASK                      23  DOUBLE
BID_SIZE                 24  DOUBLE
ASK_SIZE                 25  DOUBLE
BID_QTY                  26  INT
ASK_QTY                  27  INT
BID_ORDERS               28  INT
ASK_ORDERS               29  INT
QUOTE_COND               30  STRING
BID_DEPTH                31  VECTOR
ASK_DEPTH                32  VECTOR

LAST                     40  DOUBLE
LAST_SIZE                41  DOUBLE
SIDE                     42  CHAR
ORD_TYPE                 43  STRING
TRADE_ID                 44  STRING
TRADE_COND               45  STRING
TRADE_TIME               46  DATETIME
LAST_FRACTION            47  FRACTION

OPEN                     60  DOUBLE
HIGH                     61  DOUBLE
LOW                      62  DOUBLE
CLOSE                    63  DOUBLE
VWAP                     64  DOUBLE
SETTLE                   65  DOUBLE
VOLUME                   66  INT64
TRADE_COUNT              67  ULONG_INT
OPEN_INTEREST            68  INT64
NET_CHANGE               69  DOUBLE

PX_WHOLE                100  INT
PX_NUM                  101  INT
PX_DENOM                102  INT
STRIKE_WHOLE            103  INT
STRIKE_NUM              104  INT
STRIKE_DENOM            105  INT
PUT_CALL                106  CHAR

VOLATILITY              310  FLOAT
DELTA                   311  FLOAT
GAMMA                   312  FLOAT
THETA                   313  FLOAT
VEGA                    314  FLOAT
UNDERLYING              315  STRING
UNDERLYING_PX           316  DOUBLE
MARK_PX                 317  DOUBLE
FUNDING_RATE            318  DOUBLE

RAW_PAYLOAD             900  BUFFER
RAW_HEADER              901  RAW
LEG_MSG                 902  CHILD_MSG
NESTED_MSG              903  MSG_T
FLAG_BITS               904  FOLDED_INT
VENUE_EXTENSION       40000  BUFFER
]]

local BLANKS = " \t\n\v\f\r"
local MOST_ENTRIES = 65535

-- Collects the entries of a dictionary file: the first one with an id counts.
local function newEntries(path)
  local entries = { byId = {}, count = 0 }
  function entries.accept(name, id, typeName)
    local type = TYPE_CODES[typeName]
    if not type then
      return
    end
    if entries.count == MOST_ENTRIES then
      error("Too many fields (more than 65535) in field def file: " .. path, 0)
    end
    entries.count = entries.count + 1
    entries.byId[id] = entries.byId[id] or { id = id, name = name, type = type }
  end
  return entries
end

-- Entries of three tokens, read as a stream reads them: "12abc" is the id 12 and then the token "abc". Reading ends at
-- the first token that is not what it should be.
local function readText(text, path)
  local entries = newEntries(path)
  local token, number = "^[" .. BLANKS .. "]*([^" .. BLANKS .. "]+)()", "^[" .. BLANKS .. "]*([+-]?)(%d+)()"
  local at = 1
  while true do
    local name, afterName = text:match(token, at)
    if not name then
      break
    end
    local sign, digits, afterId = text:match(number, afterName)
    local id = digits and tonumber(digits)
    if not id or id > 65535 then
      break
    end
    local typeName, afterType = text:match(token, afterId)
    if not typeName then
      break
    end
    entries.accept(name, sign == "-" and id > 0 and 65536 - id or id, typeName)
    at = afterType
  end
  return entries
end

-- The forms of a UTF-8 character beyond ASCII.
local UTF8_CHARACTERS = {
  "[\194-\223][\128-\191]", "\224[\160-\191][\128-\191]", "[\225-\236\238\239][\128-\191][\128-\191]",
  "\237[\128-\159][\128-\191]", "\240[\144-\191][\128-\191][\128-\191]",
  "[\241-\243][\128-\191][\128-\191][\128-\191]", "\244[\128-\143][\128-\191][\128-\191]",
}

local function isUtf8(text)
  for _, character in ipairs(UTF8_CHARACTERS) do
    text = text:gsub(character, "a")
  end
  return not text:find("[\128-\255]")
end

-- UTF-8 of a character number; empty above what four bytes hold.
local function utf8Of(number)
  local char = string.char
  if number < 0x80 then
    return char(number)
  elseif number < 0x800 then
    return char(0xc0 + floor(number / 64), 0x80 + number % 64)
  elseif number < 0x10000 then
    return char(0xe0 + floor(number / 4096), 0x80 + floor(number / 64) % 64, 0x80 + number % 64)
  elseif number < 0x200000 then
    return char(0xf0 + floor(number / 262144), 0x80 + floor(number / 4096) % 64, 0x80 + floor(number / 64) % 64,
      0x80 + number % 64)
  end
  return ""
end

local ENTITIES = { amp = "&", lt = "<", gt = ">", quot = '"', apos = "'" }

-- Character data as the library reads it: runs of spaces are one space, entities are replaced, a character number by
-- its low byte where the document is not one of UTF-8. Returns nil when a character number is malformed.
local function characterData(text, isOfUtf8)
  local isMalformed = false
  local function entity(hash, name, stop)
    if hash == "" then
      return stop == ";" and ENTITIES[name] or name .. stop -- others lose their "&"
    end
    local number = name:match("^x%x+$") and tonumber(name:sub(2), 16) or name:match("^%d+$") and tonumber(name)
    isMalformed = isMalformed or not number or stop == ""
    return not number and "" or isOfUtf8 and utf8Of(number) or string.char(number % 256)
  end
  text = text:gsub("^[" .. BLANKS .. "]+", ""):gsub("[" .. BLANKS .. "]+$", ""):gsub("[" .. BLANKS .. "]+", " ")
  text = text:gsub("&(#?)(%w*)(;?)", entity)
  if isMalformed then
    return nil
  end
  return text
end

local MOST_NESTED, MOST_TAGS, MOST_ATTRIBUTES = 100, 1000000, 100
local NAME = "^[%a_\127-\255][%w_:.\127-\255-]*"

-- Reads the attributes of a tag from `at` on. Their values play no part.
-- Returns the position after the tag and whether the element is empty; nil if the tag is malformed.
local function skipAttributes(xml, at, refuse)
  local seen, count = {}, 0
  while true do
    at = xml:find("[^" .. BLANKS .. "]", at)
    local stop = at and xml:match("^/?>", at)
    if stop then
      return at + #stop, stop == "/>"
    end
    local name = at and xml:match(NAME, at)
    if not name or seen[name] then
      return nil
    end
    seen[name] = true
    count = count + 1
    if count > MOST_ATTRIBUTES then
      refuse("an element of more than " .. MOST_ATTRIBUTES .. " attributes")
    end
    local value = xml:match("^[" .. BLANKS .. "]*=[" .. BLANKS .. "]*()", at + #name)
    at = value and (xml:match('^"[^"]*"()', value) or xml:match("^'[^']*'()", value) or
      xml:match("^[^\"'/>" .. BLANKS .. "]+()", value))
    if not at then
      return nil
    end
  end
end

-- The elements of a document: { name, [1..n] = children }, where a child is an element or a string of character data.
-- Returns nil when the document is malformed; calls `refuse` with the reason when it exceeds a bound.
local function parseXml(xml, refuse)
  xml = xml:gsub("\r\n?", "\n")
  local marks
  xml, marks = xml:sub(1, (xml:find("\0", 1, true) or 0) - 1):gsub("^\239\187\191", "")
  local isWhole = isUtf8(xml)
  local isOfUtf8 = marks ~= 0 and isWhole
  local document = {}
  local open = { document } -- outermost first
  local at, tags, hasNode = 1, 0, false
  while true do
    at = xml:find("[^" .. BLANKS .. "]", at)
    local top = open[#open]
    if not at or (#open == 1 and xml:sub(at, at) ~= "<") then
      break -- text after the document is ignored
    end
    if xml:sub(at, at) ~= "<" then
      local stop = xml:find("<", at, true)
      local text = stop and characterData(xml:sub(at, stop - 1), isOfUtf8)
      if not text then
        return nil
      end
      top[#top + 1] = text
      at = stop
    else
      tags = tags + 1
      if tags > MOST_TAGS then
        refuse("more than " .. MOST_TAGS .. " tags")
      end
      hasNode = true
      local name = xml:match(NAME, at + 1)
      if name then
        local element = { name = name }
        local behind, isEmpty = skipAttributes(xml, at + 1 + #name, refuse)
        if not behind then
          return nil
        end
        top[#top + 1] = element
        if not isEmpty then
          open[#open + 1] = element
          if #open - 1 > MOST_NESTED then
            refuse("elements nested deeper than " .. MOST_NESTED)
          end
        end
        at = behind
      elseif xml:match("^</", at) and #open > 1 then
        local behind = xml:sub(at + 2, at + 1 + #top.name) == top.name and
          xml:match("^[" .. BLANKS .. "]*>()", at + 2 + #top.name)
        if not behind then
          return nil
        end
        open[#open] = nil
        at = behind
      elseif xml:match("^<!%[CDATA%[", at) then
        local stop, behind = xml:find("]]>", at, true)
        if not stop then
          return nil
        end
        top[#top + 1] = xml:sub(at + 9, stop - 1)
        at = behind + 1
      else -- a comment, a declaration or what is not known
        local stop = xml:match("^<!%-%-", at) and "-->" or ">"
        local _, behind = xml:find(stop, stop == ">" and at or at + 4, true)
        if #open == 1 and xml:match("^<%?[xX][mM][lL]", at) then
          local declaration = xml:sub(at, behind)
          local encoding = declaration:match("encoding[" .. BLANKS .. "]*=[" .. BLANKS .. "]*[\"']([^\"']*)") or ""
          isOfUtf8 = isOfUtf8 or (isWhole and (encoding == "" or encoding:upper():match("^UTF%-?8$") ~= nil))
        end
        at = (behind or #xml) + 1
        top[#top + 1] = { name = "" }
      end
    end
  end
  if #open > 1 or not hasNode then
    return nil
  end
  return document
end

local function childElement(element, name)
  for _, child in ipairs(element or {}) do
    if type(child) == "table" and (name == nil and child.name ~= "" or child.name == name) then
      return child
    end
  end
  return nil
end

local function childText(entry, name)
  local child = childElement(entry, name)
  local text = child and child[1]
  return type(text) == "string" and text ~= "" and text or nil
end

-- The low 16 bits of the decimal number at the start of `text`, cut to 64 bits with a sign; 0 when there is none.
local function idOf(text)
  local sign, digits = text:match("^[" .. BLANKS .. "]*([+-]?)0*(%d*)")
  local isNegative = sign == "-"
  if #digits > 19 or (#digits == 19 and digits > "9223372036854775807") then
    return isNegative and 0 or 65535
  end
  local value = 0
  for digit in digits:gmatch("%d") do
    value = (value * 10 + tonumber(digit)) % 65536
  end
  return isNegative and (65536 - value) % 65536 or value
end

local function readXml(xml, path)
  local function refuse(reason)
    error("Failed to load field def file: " .. path .. (reason and ": " .. reason or ""), 0)
  end
  local document = parseXml(xml, refuse) or refuse()
  local entries = newEntries(path)
  for _, entry in ipairs(childElement(childElement(document), "FieldDefinition") or {}) do
    if type(entry) == "table" and entry.name == "Entry" then
      local name, code, typeName = childText(entry, "Name"), childText(entry, "Code"), childText(entry, "Type")
      if name and code and typeName then
        entries.accept(name, idOf(code), typeName)
      end
    end
  end
  return entries
end

local function contentsOf(path)
  local file = io.open(path, "rb")
  local contents = file and file:read("*a")
  if file then
    file:close()
  end
  return contents
end

-- The library's search for its own files. A folder of that name counts as found, and then cannot be read.
local DEFAULT_SEARCH_PATH = "./etc:.:/home/kvx/config/KVXconfig:./config_latest:./Config:./cfg"

local function findOnSearchPath(name)
  for folder in ((os.getenv("CONFIG_PATH") or DEFAULT_SEARCH_PATH) .. ":"):gmatch("([^:]*):") do
    local path = folder .. "/" .. name
    if Dir.exists(path) ~= nil then
      return path
    end
  end
  return nil
end

-- The dictionary in use: the file named by the environment, else the one on the configuration search path, else the
-- built-in one.
-- Returns its entries and where they come from. Raises an error when a file cannot be loaded: a guess at field names
-- would be worse than none.
local function loadDictionary()
  local path = os.getenv("MD_MESSAGE_DICTIONARY")
  if path and path ~= "" then
    local contents = contentsOf(path)
    if not contents then
      error("Unable to open file: " .. path .. " (MD_MESSAGE_DICTIONARY)", 0)
    end
    contents = contents:gsub("^\239\187\191", "")
    local entries = (contents:match("^[" .. BLANKS .. "]*<") and readXml or readText)(contents, path)
    if entries.count == 0 then
      error("dictionary " .. path .. " contains no fields (MD_MESSAGE_DICTIONARY)", 0)
    end
    return entries.byId, path
  end
  path = findOnSearchPath("field_map.txt") or findOnSearchPath("message/field_map.txt")
  local isText = path ~= nil
  path = path or findOnSearchPath("FieldDefinition.xml")
  if path then
    local contents = contentsOf(path)
    if not contents then
      error((isText and "Unable to open file: " or "Failed to load field def file: ") .. path, 0)
    end
    local entries = (isText and readText or readXml)(contents, path)
    if entries.count ~= 0 then
      return entries.byId, path
    end
  end
  return readText(BUILT_IN_DICTIONARY, "").byId, "built-in dictionary"
end

-- ---------------------------------------------------------------------------------------------------------------------
-- 2. Walk

local fieldsById, dictionaryName = loadDictionary()
for _, field in pairs(fieldsById) do
  field.typeName = TYPE_NAMES[field.type]
  field.width = VALUE_WIDTHS[field.type] -- nil when messages do not carry the type
end

-- What MsgT records that are not those of their field are read by: the type that they carry themselves.
local fieldsByWireType = {}
for code = 0, 255 do
  local typeName = TYPE_NAMES[code] or "?"
  fieldsByWireType[code] = { name = "Value", type = code, typeName = typeName, width = VALUE_WIDTHS[code] }
end

-- What can be wrong with a message: name of the filter (md.problem.NAME), severity, group and text, which is that of
-- `mdmsg dump` and says what receivers do about it.
local PROBLEMS = {
  { "unknown_encoding", "WARN", "UNDECODED", "unknown encoding byte (01 IterMap, 06 mInt, 46 MsgT)" },
  { "mark", "NOTE", "PROTOCOL", 'not "QR1"; receivers ignore these bytes' },
  { "short_tail", "ERROR", "MALFORMED", "one byte is too short for a field id; receivers drop it" },
  { "unknown_id", "WARN", "UNDECODED", "not in the dictionary; receivers drop this record" },
  { "unknown_id_and_length", "WARN", "UNDECODED",
    "not in the dictionary, so the length is unknown; receivers drop the id and resume parsing after it" },
  { "not_carried", "WARN", "UNDECODED", "messages do not carry values of type %s" },
  { "repeated_field", "WARN", "SEQUENCE", "this field also occurs at byte %d; readers use the last one" },
  { "type_mismatch", "WARN", "PROTOCOL", "the dictionary declares %s; receivers drop this record" },
  { "type_high_byte", "NOTE", "PROTOCOL", "the first byte is not 0; receivers ignore it" },
  { "truncated_record", "ERROR", "MALFORMED", "the message is truncated within the record" },
  { "truncated_value", "ERROR", "MALFORMED",
    "the message is truncated within the value, of which it has %d of %d bytes" },
  { "wrong_length", "ERROR", "MALFORMED", "%d %s: invalid length for %s" },
  { "missing_nul", "WARN", "MALFORMED", "the terminating NUL of the string is missing" },
  { "other_than_nul", "WARN", "MALFORMED", "the last byte is not NUL; readers drop it" },
  { "too_long", "ERROR", "MALFORMED", "too long to be read" },
  -- These are about the capture, the stream and the display, not about a message.
  { "cut_capture", "NOTE", "UNDECODED", "the capture contains only %d of the %d bytes of this message" },
  { "stream_length", "ERROR", "PROTOCOL", "a length of %d bytes exceeds the limit of %d bytes in the preferences" },
  { "not_shown", "NOTE", "UNDECODED", "%d more records are not shown" },
}
local problemsByName = {}
for _, problem in ipairs(PROBLEMS) do
  problemsByName[problem[1]] = { severity = problem[2], group = problem[3], text = problem[4] }
end

-- Longest string, with its NUL, and longest buffer that can be read.
local LONGEST = { [STRING] = 65536, [BUFFER] = 65535 }

local ENCODING_NAMES = { [1] = "IterMap", [6] = "mInt", [70] = "MsgT" }

-- The present message. It and its records are reused for the next one, so that a scan allocates nothing.
--   bytes, size       what was captured; `start` is its place in the packet
--   encoding          its name, nil when the first byte is none's
--   count, [1..count] the records
--   fieldCount        different fields that receivers list
--   problems          how many there are, in all records and in front of them
-- A record:
--   at                where it begins, in the message
--   field             its row of the dictionary, nil when the id is unknown
--   valueAt, length   where its value begins and how long it is
--   isSound           it is one of its field, has no problem and is read as its type; what follows is then not set
--   id                nil for a tail of one byte, which is too short for one
--   typeAt, type      of MsgT: where its type is, nil when the message ends before; nil when the message ends within it
--   lengthAt          where its length is, nil when there is none or the message ends before
--   length            nil when the message ends before or inside it
--   stop              where the record ends, or the message inside it
--   isOfField         whether it is a record of its field, which is false when `type` is another
--   shown             the row by which its value is read, nil when it cannot be read
--   problems          { part, problem, text }; nil when there are none
local message = { start = 0, size = 0, count = 0, fieldCount = 0, problems = 0 }
-- Counts messages, so that marks that the last message left in the dictionary's rows need not be wiped: a field with
-- `seenIn` equal to this was found in this message, last in the record `seen`.
local generation = 0

local function addProblem(record, part, name, ...)
  local problem = problemsByName[name]
  local list = record.problems or {}
  record.problems = list
  list[#list + 1] = { part = part, problem = problem, text = format(problem.text, ...) }
  message.problems = message.problems + 1
end

-- The message ends within a part of a record. Returns the end.
local function truncated(record, part, ...)
  if not message.isCut then -- else the capture ends here, and the message goes on
    addProblem(record, part, ... and "truncated_value" or "truncated_record", ...)
  end
  record.stop = message.size
  return message.size
end

local function resetRecord(record, at, id)
  record.at, record.id, record.field = at, id, fieldsById[id]
  record.isSound, record.isOfField = false, false
  record.typeAt, record.type, record.lengthAt, record.length = nil, nil, nil, nil
  record.valueAt, record.shown, record.problems = nil, nil, nil
end

-- Starts a record that has an id, with what is wrong with that.
-- wireType: the type that the record carries, nil where the encoding has none or the message ends before
-- readType: the type that receivers read, nil where the encoding has none
local function beginRecord(record, at, id, unknown, wireType, readType)
  resetRecord(record, at, id)
  local field = record.field
  if not field then
    addProblem(record, "id", unknown)
    return
  end
  if not field.width then
    addProblem(record, "id", "not_carried", field.typeName)
  elseif (wireType or field.type) == field.type and field.seenIn == generation then
    addProblem(record, "id", "repeated_field", field.seen.at)
  end
  record.isOfField = (readType or field.type) == field.type
  if record.isOfField then
    if field.seenIn ~= generation then
      field.seenIn = generation
      message.fieldCount = message.fieldCount + 1
    end
    field.seen = record
  end
end

local function readTail(record, at)
  resetRecord(record, at, nil)
  record.stop = message.size
  if not message.isCut then
    addProblem(record, "id", "short_tail")
  end
  return message.size
end

-- The value of a record, read by the row `field`. Returns the position after it.
local function readValue(record, field, at)
  local length, width = record.length, field.width
  record.valueAt = at
  if length > message.size - at then
    return truncated(record, "value", message.size - at, length)
  end
  record.stop = at + length
  if not width then
    return at + length
  end
  record.shown = field
  if width ~= 0 then
    local isShort = field.type == INT and message.encoding == "mInt" and (length == 1 or length == 2)
    if length ~= width and not isShort then
      addProblem(record, "value", "wrong_length", length, length == 1 and "byte" or "bytes", field.typeName)
      record.shown = length > width and field or nil
    end
  elseif field.type == STRING and length == 0 then
    addProblem(record, "value", "missing_nul")
  elseif field.type == STRING and byte(message.bytes, at + length) ~= 0 then
    addProblem(record, "value", "other_than_nul")
  elseif length > LONGEST[field.type] then
    addProblem(record, "value", "too_long")
  end
  return at + length
end

-- A field that no dictionary has: nothing is known of its value.
local UNKNOWN_FIELD = {}

-- One function for each encoding reads the record at `at`, of which at least one byte is there, with all that is wrong
-- with it, and returns the position after it. Offsets count from 0, string.byte from 1.
local readRecord = {}

function readRecord.mInt(record, at)
  local low, high, length = byte(message.bytes, at + 1, at + 3)
  if not high then
    return readTail(record, at)
  end
  beginRecord(record, at, low + 256 * high, "unknown_id")
  record.lengthAt, record.length = at + 2, length
  if not length then
    return truncated(record, "length")
  end
  return readValue(record, record.field or UNKNOWN_FIELD, at + 3)
end

function readRecord.IterMap(record, at)
  local low, high, b0, b1, b2, b3 = byte(message.bytes, at + 1, at + 6)
  if not high then
    return readTail(record, at)
  end
  beginRecord(record, at, low + 256 * high, "unknown_id_and_length")
  local field = record.field
  if not field then
    record.stop = at + 2
    return at + 2
  end
  if field.type ~= STRING and field.type ~= BUFFER then
    record.length = ITERMAP_WIDTHS[field.type]
    return readValue(record, field, at + 2)
  end
  record.lengthAt = at + 2
  if not (field.type == STRING and b1 or b3) then
    return truncated(record, "length")
  end
  record.length = b0 + 256 * b1 + (field.type == BUFFER and 65536 * b2 + 16777216 * b3 or 0)
  return readValue(record, field, at + (field.type == STRING and 4 or 6))
end

function readRecord.MsgT(record, at)
  local idHigh, idLow, typeHigh, wireType, b3, b2, b1, b0 = byte(message.bytes, at + 1, at + 8)
  if not idLow then
    return readTail(record, at)
  end
  -- What is missing at the end of a message reads as 0.
  beginRecord(record, at, idLow + 256 * idHigh, "unknown_id", wireType, wireType or 0)
  record.typeAt, record.type = at + 2, wireType
  local field = record.field
  if not wireType then
    return truncated(record, "type")
  end
  if field and not record.isOfField then
    addProblem(record, "type", "type_mismatch", field.typeName)
  elseif typeHigh ~= 0 then
    addProblem(record, "type", "type_high_byte")
  end
  record.lengthAt = at + 4
  if not b0 then
    return truncated(record, "length")
  end
  record.length = b0 + 256 * b1 + 65536 * b2 + 16777216 * b3
  return readValue(record, record.isOfField and field or fieldsByWireType[wireType], at + 8)
end

-- The fast way through the records that have no problem, as nearly all have none. One function for each encoding looks
-- at the record at `at` and returns its field, the place of its value and the length of that; nil for any other
-- record.
local soundRecord = {}

-- Whether `length` bytes at `at` are a value of the field, whose type has values of any length.
local function isSoundText(bytes, field, at, length)
  return length <= LONGEST[field.type] and
    (field.type == BUFFER or (length ~= 0 and byte(bytes, at + length) == 0))
end

function soundRecord.mInt(bytes, at)
  local low, high, length = byte(bytes, at + 1, at + 3)
  local field = length and fieldsById[low + 256 * high]
  local width = field and field.width
  if width == 0 and isSoundText(bytes, field, at + 3, length) or
    width and width ~= 0 and (length == width or (field.type == INT and (length == 1 or length == 2))) then
    return field, at + 3, length
  end
  return nil
end

function soundRecord.IterMap(bytes, at)
  local low, high, b0, b1 = byte(bytes, at + 1, at + 4)
  local field = high and fieldsById[low + 256 * high]
  local width = field and field.width
  if width and width ~= 0 then
    return field, at + 2, width
  elseif width and field.type == STRING and b1 then
    local length = b0 + 256 * b1
    if isSoundText(bytes, field, at + 4, length) then
      return field, at + 4, length
    end
  end
  return nil
end

function soundRecord.MsgT(bytes, at)
  local idHigh, idLow, typeHigh, wireType, b3, b2, b1, b0 = byte(bytes, at + 1, at + 8)
  local field = b0 and typeHigh == 0 and fieldsById[idLow + 256 * idHigh]
  local width = field and field.type == wireType and field.width
  if width then
    local length = b0 + 256 * b1 + 65536 * b2 + 16777216 * b3
    if width == 0 and isSoundText(bytes, field, at + 8, length) or width ~= 0 and length == width then
      return field, at + 8, length
    end
  end
  return nil
end

-- Walks over the records of `bytes`. isCut: the message goes on, but the capture ends here.
local function walk(bytes, start, isCut)
  generation = generation + 1
  local size, encoding = #bytes, ENCODING_NAMES[byte(bytes, 1)]
  message.bytes, message.start, message.size, message.isCut, message.encoding = bytes, start, size, isCut, encoding
  message.count, message.fieldCount, message.problems, message.hasMark = 0, 0, 0, true
  if not encoding then
    message.problems = size == 0 and 0 or 1
    return
  end
  local at, count = 1, 0
  if encoding == "MsgT" then
    at = 4
    message.hasMark = size == 1 or bytes:sub(2, 4) == "QR1" or (isCut and size < 4)
    message.problems = message.hasMark and 0 or 1
  end
  local sound, read, seenIn = soundRecord[encoding], readRecord[encoding], generation
  local fieldCount = 0
  while at < size do
    count = count + 1
    local record = message[count]
    if not record then
      record = {}
      message[count] = record
    end
    local field, valueAt, length = sound(bytes, at)
    if field and field.seenIn ~= seenIn and valueAt + length <= size then
      field.seenIn, field.seen = seenIn, record
      fieldCount = fieldCount + 1
      record.isSound, record.at, record.field, record.valueAt, record.length = true, at, field, valueAt, length
      at = valueAt + length
    else
      at = read(record, at)
    end
  end
  message.count, message.fieldCount = count, message.fieldCount + fieldCount
end

-- ---------------------------------------------------------------------------------------------------------------------
-- 3. Protocol

local md = Proto("md", "Market Data Message")

-- A name as it is shown, at most 200 bytes of it: control characters, and bytes that are not UTF-8, as \xNN.
local LONGEST_NAME = 200
local function printable(name)
  local isAscii = #name > LONGEST_NAME or not isUtf8(name)
  name = name:sub(1, LONGEST_NAME):gsub(isAscii and "[^\32-\126]" or "[\0-\31\127]", function(char)
    return format("\\x%02x", byte(char))
  end)
  return name
end

-- Filters that every message has.
local fields = {
  encoding = ProtoField.uint8("md.encoding", "Encoding", base.DEC, ENCODING_NAMES),
  size = ProtoField.uint32("md.size", "Size in bytes", base.DEC),
  fieldCount = ProtoField.uint32("md.field_count", "Fields", base.DEC),
  mark = ProtoField.string("md.header.mark", "Mark"),
  streamLength = ProtoField.uint32("md.stream.length", "Length in the stream", base.DEC),
  record = ProtoField.none("md.record", "Record"),
  type = ProtoField.uint8("md.record.type", "Type", base.DEC, TYPE_NAMES),
  length = ProtoField.uint32("md.record.length", "Length", base.DEC),
  bytes = ProtoField.bytes("md.record.bytes", "Bytes"),
  datetime = ProtoField.none("md.record.datetime", "Date and time"), -- one that is no moment
}

-- The filter of each field is "md." and its name in lower case, with "_" for every byte but letters, digits and "_".
-- Where that is also another field's, or one of the names above, "." and the id follow. No other name has a dot at its
-- end and then digits, so that two fields never share a filter.
local LONGEST_FILTER = 200

local function filterOf(field)
  return "md." .. field.name:gsub("[^%w_]", "_"):gsub("[\128-\255]", "_"):lower():sub(1, LONGEST_FILTER)
end

local function assignFilters(byId)
  local users = { ["md.encoding"] = 1, ["md.size"] = 1, ["md.field_count"] = 1, ["md.record"] = 1 }
  for _, field in pairs(byId) do
    field.filter = filterOf(field)
    users[field.filter] = (users[field.filter] or 0) + 1
  end
  for id, field in pairs(byId) do
    if users[field.filter] ~= 1 then
      field.filter = field.filter .. "." .. id
    end
  end
end

local CONSTRUCTORS = {
  CHAR = ProtoField.char, INT = ProtoField.int32, FLOAT = ProtoField.float, DOUBLE = ProtoField.double,
  STRING = ProtoField.string, INT64 = ProtoField.int64,
}

-- Makes what Wireshark shows a field as. Times have a field for the moment and further ones for what is in the message.
local function makeProtoFields(field, list)
  local filter, name = field.filter, printable(field.name)
  local function make(constructor, suffix, label, ...)
    local made = constructor(filter .. suffix, label, ...)
    list[#list + 1] = made
    field.protos[#field.protos + 1] = made
    return made
  end
  field.label, field.protos = name, {}
  if field.typeName == "EPOCH_NSEC" then
    field.proto = make(ProtoField.absolute_time, "", name, base.UTC)
    field.nsProto = make(ProtoField.uint64, ".ns", "Nanoseconds since 1970")
  elseif field.typeName == "DATETIME" then
    field.proto = make(ProtoField.absolute_time, "", name, base.UTC)
    field.dateProto = make(ProtoField.uint32, ".date", "Date", base.DEC)
    field.timeProto = make(ProtoField.uint32, ".time", "Time of day", base.DEC)
    field.offsetProto = make(ProtoField.int32, ".offset", "UTC offset", base.DEC)
  else
    field.proto = make(CONSTRUCTORS[field.typeName] or ProtoField.bytes, "", name)
  end
end

local fieldsByName = {}
do
  assignFilters(fieldsById)
  local list, idNames, ids = {}, {}, {}
  for id in pairs(fieldsById) do
    ids[#ids + 1] = id
  end
  table.sort(ids)
  for _, id in ipairs(ids) do
    local field = fieldsById[id]
    makeProtoFields(field, list)
    idNames[id] = field.label
    fieldsByName[field.name] = field -- of two with a name the one with the higher id counts
  end
  for _, field in pairs(fieldsByWireType) do
    if field.width then
      field.filter = "md.record.value." .. field.typeName:lower()
      makeProtoFields(field, list)
    end
  end
  fields.id = ProtoField.uint16("md.record.id", "Id", base.DEC, idNames)
  for _, field in pairs(fields) do
    list[#list + 1] = field
  end
  md.fields = list

  local experts = {}
  for name, problem in pairs(problemsByName) do
    problem.expert = ProtoExpert.new("md.problem." .. name, problem.text:gsub("%%[ds]", "..."),
      expert.group[problem.group], expert.severity[problem.severity])
    experts[#experts + 1] = problem.expert
  end
  md.experts = experts
end

-- Size and byte order of the length prefix of a message in a TCP stream.
local FRAMINGS = {
  [0] = { size = 2, isLittle = true }, { size = 2 }, { size = 4, isLittle = true }, { size = 4 },
}
local U16LE, U16BE, U32LE, U32BE = 0, 1, 2, 3
local AUTOMATIC, ALWAYS, NEVER = 0, 1, 2
local HHMMSSMMM, HHMMSS, MILLISECONDS, SECONDS, NOT_KNOWN = 0, 1, 2, 3, 4
local MINUTES, IGNORED = 0, 1

md.prefs.dictionary = Pref.statictext("Dictionary: " .. dictionaryName, "It is read when Wireshark starts")
md.prefs.udp_ports = Pref.range("UDP ports", "", "Ports whose datagrams are messages", 65535)
md.prefs.tcp_ports = Pref.range("TCP ports", "", "Ports whose streams are length-prefixed messages",
  65535)
md.prefs.tcp_framing = Pref.enum("Length in TCP streams", U32BE,
  "The format of the length prefix of each message; the length excludes the prefix", {
    { "u16le", "u16le: 2 bytes, little-endian", U16LE }, { "u16be", "u16be: 2 bytes, big-endian", U16BE },
    { "u32le", "u32le: 4 bytes, little-endian", U32LE }, { "u32be", "u32be: 4 bytes, big-endian", U32BE },
  }, false)
md.prefs.tcp_longest = Pref.uint("Longest message in TCP streams", 1048576,
  "In bytes. A greater length is an error: the stream has another framing, or does not contain messages.")
md.prefs.heuristic = Pref.bool("Recognise messages on any UDP port", false,
  "Datagrams whose records, up to the last byte, all have ids of the dictionary and lengths that match their types")
md.prefs.info_fields = Pref.string("Fields in the Info column", "SYMBOL,BID,ASK",
  "Up to four fields, by name or id, separated by commas")
md.prefs.symbol_field = Pref.string("Field of the symbol", "SYMBOL",
  "The field by which statistics count messages, as a name or id")
md.prefs.parts = Pref.enum("Id, type and length of each record", AUTOMATIC, "Whether to show them below the value", {
    { "automatic", "automatic: with tshark -T fields only if requested", AUTOMATIC },
    { "always", "always", ALWAYS }, { "never", "never", NEVER },
  }, false)
md.prefs.datetime_unit = Pref.enum("Time of day in DATETIME", HHMMSSMMM,
  "The unit of the time of day of a DATETIME field", {
    { "hhmmssmmm", "hhmmssmmm: 93000000 is 09:30:00.000", HHMMSSMMM },
    { "hhmmss", "hhmmss: 93000 is 09:30:00", HHMMSS },
    { "ms", "milliseconds since midnight", MILLISECONDS }, { "s", "seconds since midnight", SECONDS },
    { "unknown", "unknown: no absolute time is shown", NOT_KNOWN },
  }, false)
md.prefs.datetime_offset = Pref.enum("UTC offset in DATETIME", MINUTES,
  "The unit of the offset of a DATETIME field", {
    { "minutes", "minutes: -300 is UTC-05:00", MINUTES }, { "ignored", "ignored: times are UTC", IGNORED },
  }, false)

-- tshark marks the tree of "-T fields" as visible, as it does for -V, though it prints nothing but what -e names.
-- No call distinguishes the two, so the command line is looked at where the system shows it: omitting the parts halves
-- the time.
local function isFieldsOutput()
  local file = not gui_enabled() and io.open("/proc/self/cmdline", "rb")
  if not file then
    return false
  end
  local arguments = "\0" .. (file:read("*a") or "") .. "\0"
  file:close()
  return arguments:find("\0-T\0?fields\0") ~= nil and not arguments:find("md.record", 1, true)
end

local preferences = { udpPorts = "", tcpPorts = "", infoFields = {} }

local function fieldNamed(text)
  local name = text:match("^%s*(.-)%s*$")
  return fieldsByName[name] or (name:find("^%d+$") and fieldsById[tonumber(name)]) or nil
end

-- Exchanges the ports that a dissector table leads to the protocol from.
local function usePorts(tableName, old, new)
  local ports = DissectorTable.get(tableName)
  if old ~= "" then
    ports:remove(old, md)
  end
  if new ~= "" then
    ports:add(new, md)
  end
  return new
end

local function readPreferences()
  local prefs = md.prefs
  if prefs.udp_ports ~= preferences.udpPorts then
    preferences.udpPorts = usePorts("udp.port", preferences.udpPorts, prefs.udp_ports)
  end
  if prefs.tcp_ports ~= preferences.tcpPorts then
    preferences.tcpPorts = usePorts("tcp.port", preferences.tcpPorts, prefs.tcp_ports)
  end
  preferences.framing = FRAMINGS[prefs.tcp_framing]
  preferences.longest = prefs.tcp_longest
  preferences.heuristic = prefs.heuristic
  preferences.hasParts = prefs.parts == ALWAYS or (prefs.parts == AUTOMATIC and not isFieldsOutput())
  preferences.datetimeUnit, preferences.datetimeOffset = prefs.datetime_unit, prefs.datetime_offset
  preferences.symbolField = fieldNamed(prefs.symbol_field)
  preferences.infoFields = {}
  for text in prefs.info_fields:gmatch("[^,]+") do
    if #preferences.infoFields < 4 then
      preferences.infoFields[#preferences.infoFields + 1] = fieldNamed(text)
    end
  end
end

md.prefs_changed = readPreferences

-- ---------------------------------------------------------------------------------------------------------------------
-- 4. Dissection

-- Wireshark's methods, found once: finding one through its object costs as much as calling it.
local add, addLittle, addPacketField, setGenerated, addProblemTo, isReferenced, rangeOf
local newTime = NSTime.new

local function findMethods(tvb, tree)
  add, addLittle, addPacketField = tree.add, tree.add_le, tree.add_packet_field
  setGenerated, addProblemTo, isReferenced = tree.set_generated, tree.add_proto_expert_info, tree.referenced
  rangeOf = tvb.range
end

-- Seconds since 1970 and nanoseconds of the 8 bytes at `at`, by long division: 64 bits are more than a Lua number
-- holds.
local function epochOf(at)
  local b0, b1, b2, b3, b4, b5, b6, b7 = byte(message.bytes, at + 1, at + 8)
  local second = 1000000000
  local rest = b4 + 256 * b5 + 65536 * b6 + 16777216 * b7
  local seconds = floor(rest / second)
  rest = rest % second * 65536 + b2 + 256 * b3
  seconds = seconds * 65536 + floor(rest / second)
  rest = rest % second * 65536 + b0 + 256 * b1
  return seconds * 65536 + floor(rest / second), rest % second
end

-- Date (20240603), time of day and offset of the date-time at `at`.
local function dateTimeOf(at)
  local b0, b1, b2, b3, b4, b5, b6, b7 = byte(message.bytes, at + 1, at + 8)
  local time = b0 + 256 * b1 + 65536 * b2 + 16777216 * (b3 % 16)
  local day = floor(b3 / 16) + 16 * (b4 % 2)
  local month = floor(b4 / 2) % 16
  local year = 1900 + floor(b4 / 32) + 8 * (b5 % 32)
  local offset = (floor(b5 / 32) + 8 * b6 + 2048 * b7) % 65536
  return (year * 100 + month) * 100 + day, time, offset >= 32768 and offset - 65536 or offset
end

local DAYS_IN_MONTH = { 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31 }

-- Days from 1970 to a date of the years 1900 to 2155; nil for a date that does not exist.
local function daysSince1970(date)
  local year, month, day = floor(date / 10000), floor(date / 100) % 100, date % 100
  local isLeap = year % 4 == 0 and (year % 100 ~= 0 or year % 400 == 0)
  local length = DAYS_IN_MONTH[month]
  if not length or day < 1 or day > length + (isLeap and month == 2 and 1 or 0) then
    return nil
  end
  local before = year - 1
  local days = 365 * year + floor(before / 4) - floor(before / 100) + floor(before / 400) - 719528 + day
  for i = 1, month - 1 do
    days = days + DAYS_IN_MONTH[i]
  end
  return days + (isLeap and month > 2 and 1 or 0)
end

-- The point in time of a date-time, by the preferences about its units; nil if it is invalid.
local function momentOf(date, time, offset)
  local unit = preferences.datetimeUnit
  local days = daysSince1970(date)
  local seconds, ms = time, 0
  if unit == HHMMSSMMM or unit == MILLISECONDS then
    seconds, ms = floor(time / 1000), time % 1000
  end
  if unit == HHMMSSMMM or unit == HHMMSS then
    local hour, minute, second = floor(seconds / 10000), floor(seconds / 100) % 100, seconds % 100
    if minute > 59 or second > 59 then
      return nil
    end
    seconds = hour * 3600 + minute * 60 + second
  end
  if unit == NOT_KNOWN or not days or seconds >= 86400 then
    return nil
  end
  local east = preferences.datetimeOffset == MINUTES and offset * 60 or 0
  return newTime(days * 86400 + seconds - east, ms * 1000000)
end

-- Adds the value of a field, which can be read: `length` bytes at `at` of `tvb`. Returns its item. Numbers pass
-- `addNumber`, which knows the byte order.
local VALUE_ADDERS = {}

function VALUE_ADDERS.STRING(tree, tvb, field, at, length)
  -- Receivers skip the last byte.
  return (addPacketField(tree, field.proto, rangeOf(tvb, at, length == 0 and 0 or length - 1), ENC_UTF_8))
end

function VALUE_ADDERS.BUFFER(tree, tvb, field, at, length)
  return add(tree, field.proto, rangeOf(tvb, at, length))
end

function VALUE_ADDERS.INT(tree, tvb, field, at, length, addNumber)
  if length == 1 then -- without a sign
    return add(tree, field.proto, rangeOf(tvb, at, 1), (byte(message.bytes, at - message.start + 1)))
  end
  return addNumber(tree, field.proto, rangeOf(tvb, at, length == 2 and 2 or 4))
end

function VALUE_ADDERS.EPOCH_NSEC(tree, tvb, field, at)
  local range = rangeOf(tvb, at, 8)
  local item = add(tree, field.proto, range, newTime(epochOf(at - message.start)))
  addLittle(item, field.nsProto, range)
  return item
end

function VALUE_ADDERS.DATETIME(tree, tvb, field, at)
  local range = rangeOf(tvb, at, 8)
  local date, time, offset = dateTimeOf(at - message.start)
  local moment = momentOf(date, time, offset)
  local item
  if moment then
    item = add(tree, field.proto, range, moment)
  else
    item = add(tree, fields.datetime, range)
    item:set_text(format("%s: %d %d (%d)", field.label, date, time, offset))
  end
  -- The parts are bit fields that share bytes.
  add(item, field.dateProto, rangeOf(tvb, at + 3, 3), date)
  add(item, field.timeProto, rangeOf(tvb, at, 4), time)
  add(item, field.offsetProto, rangeOf(tvb, at + 5, 3), offset)
  return item
end

local function addNumberValue(tree, tvb, field, at, _, addNumber)
  return addNumber(tree, field.proto, rangeOf(tvb, at, field.width))
end

-- Of a type that messages do not carry.
local function addBytes(tree, tvb, field, at, length)
  return add(tree, field.proto, rangeOf(tvb, at, length))
end

for _, list in ipairs({ fieldsById, fieldsByWireType }) do
  for _, field in pairs(list) do
    field.addValue = VALUE_ADDERS[field.typeName] or (field.width and addNumberValue) or addBytes
  end
end

local recordProto, idProto, typeProto, lengthProto = fields.record, fields.id, fields.type, fields.length

-- Adds a record that is not sound, with all its parts. Its item is that of the value, where that can be shown as the
-- field's, and highlights it; the id, the type and the length are below it, and beside each what is wrong with it.
local function addRecord(tree, tvb, record, addNumber)
  local start, field, shown = message.start, record.field, record.shown
  local valueAt, length = record.valueAt, record.length
  local isWhole = valueAt and record.stop - valueAt == length
  local isOfField = record.isOfField and isWhole and (shown == field or not field.width)
  local node
  if isOfField then
    node = field.addValue(tree, tvb, field, start + valueAt, length, addNumber)
  else
    node = add(tree, recordProto, rangeOf(tvb, start + record.at, record.stop - record.at))
    node:set_text(field and field.label or record.id and "Field " .. record.id or "Rest")
  end
  local items = { id = node, type = node, length = node, value = node }
  if record.id then
    local idRange = rangeOf(tvb, start + record.at, 2)
    items.id = addNumber(node, idProto, idRange)
    if record.type then
      items.type = add(node, typeProto, rangeOf(tvb, start + record.typeAt, 2), record.type)
    elseif field then -- the dictionary has it by the id
      setGenerated(add(node, typeProto, idRange, field.type))
    end
  end
  if length and record.lengthAt then
    items.length = addNumber(node, lengthProto, rangeOf(tvb, start + record.lengthAt, valueAt - record.lengthAt))
  elseif length then -- the type has it
    setGenerated(add(node, lengthProto, length))
  end
  if valueAt and not isOfField then
    if shown and isWhole then
      items.value = shown.addValue(node, tvb, shown, start + valueAt, length, addNumber)
    elseif record.stop ~= valueAt then
      items.value = add(node, fields.bytes, rangeOf(tvb, start + valueAt, record.stop - valueAt))
    end
  end
  for _, found in ipairs(record.problems or {}) do
    addProblemTo(items[found.part], found.problem.expert, found.text)
  end
end

-- The same for sound records, one function for each encoding: speed counts here.
local addSoundRecord = {}

function addSoundRecord.mInt(tree, tvb, record, start)
  local field, at = record.field, start + record.at
  local node = field.addValue(tree, tvb, field, at + 3, record.length, addLittle)
  local idRange = rangeOf(tvb, at, 2)
  addLittle(node, idProto, idRange)
  setGenerated(add(node, typeProto, idRange, field.type))
  addLittle(node, lengthProto, rangeOf(tvb, at + 2, 1))
end

function addSoundRecord.IterMap(tree, tvb, record, start)
  local field, at, lengthBytes = record.field, start + record.at, record.valueAt - record.at - 2
  local node = field.addValue(tree, tvb, field, at + 2 + lengthBytes, record.length, addLittle)
  local idRange = rangeOf(tvb, at, 2)
  addLittle(node, idProto, idRange)
  setGenerated(add(node, typeProto, idRange, field.type))
  if lengthBytes ~= 0 then
    addLittle(node, lengthProto, rangeOf(tvb, at + 2, lengthBytes))
  else
    setGenerated(add(node, lengthProto, record.length))
  end
end

function addSoundRecord.MsgT(tree, tvb, record, start)
  local field, at = record.field, start + record.at
  local node = field.addValue(tree, tvb, field, at + 8, record.length, add)
  add(node, idProto, rangeOf(tvb, at, 2))
  add(node, typeProto, rangeOf(tvb, at + 2, 2), field.type)
  add(node, lengthProto, rangeOf(tvb, at + 4, 4))
end

-- Text that may come from anywhere, for a column: without what terminals obey or what turns the order of characters.
local function harmless(text)
  if not text:find("[\0-\31\127-\255]") then
    return text
  end
  return (text:gsub("[\0-\31\127]", "."):gsub("\194[\128-\159]", "."):gsub("\216\156", ".")
    :gsub("\226\128[\142\143\168-\174]", "."):gsub("\226\129[\166-\169]", "."))
end

-- Whether the message has a field that can be read.
local function isReadable(field)
  return field.seenIn == generation and (field.seen.isSound or field.seen.shown == field)
end

-- Of a string, for a column.
local LONGEST_TEXT = 60

-- The value of a record, which can be read, for the Info column.
local function valueText(tvb, record)
  local at, typeName = record.valueAt, record.field.typeName
  local range = rangeOf(tvb, message.start + at, record.length)
  local isBig = message.encoding == "MsgT"
  if typeName == "STRING" then
    local length = math.max(record.length - 1, 0)
    local text = harmless(range:range(0, math.min(length, LONGEST_TEXT)):string(ENC_UTF_8))
    return length > LONGEST_TEXT and text .. "..." or text
  elseif typeName == "CHAR" then
    return harmless(range:range(0, 1):string(ENC_UTF_8))
  elseif typeName == "BUFFER" then
    return record.length .. (record.length == 1 and " byte" or " bytes")
  elseif typeName == "DATETIME" then
    return format("%d %d (%d)", dateTimeOf(at))
  elseif typeName == "EPOCH_NSEC" then
    local seconds, ns = epochOf(at)
    return os.date("!%Y-%m-%dT%H:%M:%S", seconds) .. format(".%09dZ", ns)
  elseif typeName == "INT64" then
    range = range:range(0, 8)
    return tostring(isBig and range:int64() or range:le_int64())
  elseif typeName == "INT" then
    if record.length == 1 then
      return tostring(range:uint())
    end
    range = range:range(0, record.length == 2 and 2 or 4)
    return tostring(isBig and range:int() or range:le_int())
  end
  range = range:range(0, record.field.width)
  local value = isBig and range:float() or range:le_float()
  if typeName == "FLOAT" then
    return format("%.6g", value)
  end
  local text = format("%.15g", value)
  return tonumber(text) == value and text or format("%.17g", value)
end

local function plural(count, what)
  return count .. " " .. what .. (count == 1 and "" or "s")
end

local function infoText(tvb)
  if message.size == 0 then
    return "empty message"
  elseif not message.encoding then
    return format("unknown encoding byte 0x%02x", byte(message.bytes, 1))
  end
  local parts = { message.encoding, plural(message.fieldCount, "field") }
  for _, field in ipairs(preferences.infoFields) do
    if isReadable(field) then
      parts[#parts + 1] = field.label .. "=" .. valueText(tvb, field.seen)
    end
  end
  if message.problems ~= 0 then
    parts[#parts + 1] = plural(message.problems, "problem")
  end
  return table.concat(parts, ", ")
end

-- For statistics: the messages of the frame dissected last, as { encoding, symbol, size, problems }. Empty while no
-- statistics run.
local lastFrame = { number = 0 }
local listeners = 0

local function noteForStatistics(tvb, pinfo)
  if lastFrame.number ~= pinfo.number then
    lastFrame = { number = pinfo.number }
  end
  local field = preferences.symbolField
  local hasSymbol = field and isReadable(field)
  lastFrame[#lastFrame + 1] = {
    encoding = message.encoding, symbol = hasSymbol and valueText(tvb, field.seen) or nil,
    size = message.size, problems = message.problems,
  }
end

-- Whether a filter or a column asks for a field, or for a part of its value.
local function isWanted(tree, field)
  for _, proto in ipairs(field.protos) do
    if isReferenced(tree, proto) then
      return true
    end
  end
  return false
end

-- Wireshark gives up on a packet with more than a million items. No datagram has so many records, but a message of a
-- TCP stream may.
local MOST_SHOWN = 50000

local function addRecords(root, tvb, isVisible)
  local start, encoding = message.start, message.encoding
  local addNumber, addSound = encoding == "MsgT" and add or addLittle, addSoundRecord[encoding]
  local hasParts = preferences.hasParts and
    (isVisible or isReferenced(root, idProto) or isReferenced(root, typeProto) or isReferenced(root, lengthProto))
  for i = 1, math.min(message.count, MOST_SHOWN) do
    local record = message[i]
    if not record.isSound then
      addRecord(root, tvb, record, addNumber)
    elseif hasParts then
      addSound(root, tvb, record, start)
    elseif isVisible or isWanted(root, record.field) then
      record.field.addValue(root, tvb, record.field, start + record.valueAt, record.length, addNumber)
    end
  end
  if message.count > MOST_SHOWN then
    local problem = problemsByName.not_shown
    addProblemTo(root, problem.expert, format(problem.text, message.count - MOST_SHOWN))
  end
end

-- Adds what comes before the records.
local function addHeader(root, tvb, captured, isVisible)
  local start = message.start
  if not message.encoding then
    local problem = problemsByName.unknown_encoding
    addProblemTo(add(root, fields.encoding, rangeOf(tvb, start, 1)), problem.expert, problem.text)
    if captured > 1 then
      add(root, fields.bytes, rangeOf(tvb, start + 1, captured - 1))
    end
    return
  end
  if isVisible or isReferenced(root, fields.encoding) then
    add(root, fields.encoding, rangeOf(tvb, start, 1))
  end
  if message.encoding == "MsgT" and captured > 1 and
    (isVisible or not message.hasMark or isReferenced(root, fields.mark)) then
    local mark = add(root, fields.mark, rangeOf(tvb, start + 1, math.min(3, captured - 1)))
    if not message.hasMark then
      addProblemTo(mark, problemsByName.mark.expert, problemsByName.mark.text)
    end
  end
  if isVisible or isReferenced(root, fields.fieldCount) then
    setGenerated(add(root, fields.fieldCount, message.fieldCount))
  end
end

-- Titles by what they consist of.
local titles = {}

local function titleOf(encoding, fieldCount)
  local byCount = titles[encoding or ""] or {}
  titles[encoding or ""] = byCount
  local title = byCount[fieldCount]
  if not title then
    title = "Market Data Message" .. (encoding and ", " .. encoding .. ", " .. plural(fieldCount, "field") or "")
    byCount[fieldCount] = title
  end
  return title
end

-- Adds the number in front of a message of a stream. Returns its item.
local function addStreamLength(root, tvb)
  local framing = preferences.framing
  return (framing.isLittle and addLittle or add)(root, fields.streamLength, rangeOf(tvb, 0, framing.size))
end

-- Dissects the `size` bytes at `start` as one message, of which the capture holds `captured`. What is in front of them
-- is the length in a stream.
local function dissectMessage(tvb, pinfo, tree, start, captured, size)
  walk(captured == 0 and "" or tvb:raw(start, captured), start, captured < size)
  if listeners ~= 0 then
    noteForStatistics(tvb, pinfo)
  end
  local root = add(tree, md, rangeOf(tvb, 0, start + captured), titleOf(message.encoding, message.fieldCount))
  local isVisible = root.visible
  if start ~= 0 then
    addStreamLength(root, tvb)
  end
  if captured < size then
    local problem = problemsByName.cut_capture
    addProblemTo(root, problem.expert, format(problem.text, captured, size))
  end
  if isVisible or isReferenced(root, fields.size) then
    setGenerated(add(root, fields.size, size))
  end
  if captured ~= 0 then
    addHeader(root, tvb, captured, isVisible)
    addRecords(root, tvb, isVisible)
  end
end

-- Columns are filled only where there are any: the Info text costs as much as the walk.
local function hasColumns(pinfo)
  return tostring(pinfo.cols.info) ~= "(info)"
end

-- The length prefix of a message of a stream.
local function streamLengthOf(tvb, offset)
  local framing = preferences.framing
  local range = tvb:range(offset, framing.size)
  return framing.isLittle and range:le_uint() or range:uint()
end

local function pduLength(tvb, _, offset)
  local framing = preferences.framing
  if tvb:captured_len() - offset < framing.size then
    return framing.size -- the capture ends, or streams are not reassembled
  end
  local length = streamLengthOf(tvb, offset)
  -- After an invalid length no message can be found: the rest of the segment is shown with the problem.
  return length <= preferences.longest and framing.size + length or tvb:reported_length_remaining(offset)
end

-- What the Info column held when this protocol filled it last: more messages of the same segment are appended.
local lastInfo

local function dissectPdu(tvb, pinfo, tree)
  local prefixBytes, captured = preferences.framing.size, tvb:captured_len()
  if captured < prefixBytes then
    return captured
  end
  local length = streamLengthOf(tvb, 0)
  local text
  if length <= preferences.longest then
    dissectMessage(tvb, pinfo, tree, prefixBytes, captured - prefixBytes, tvb:reported_len() - prefixBytes)
    text = hasColumns(pinfo) and infoText(tvb)
  else
    local root, problem = tree:add(md, tvb:range(), "Market Data Message, not dissected"), problemsByName.stream_length
    addProblemTo(addStreamLength(root, tvb), problem.expert, format(problem.text, length, preferences.longest))
    text = format("length of %d bytes", length)
  end
  if hasColumns(pinfo) then
    local info = pinfo.cols.info
    if tostring(info) == lastInfo then
      info:append("; " .. text)
    else
      info:set(text)
    end
    lastInfo = tostring(info)
  end
  return captured
end

local PT_TCP = 2

local function dissect(tvb, pinfo, tree)
  if not add then
    findMethods(tvb, tree)
  end
  local isShown = hasColumns(pinfo)
  if isShown then
    pinfo.cols.protocol = "MD"
  end
  if pinfo.port_type == PT_TCP then
    dissect_tcp_pdus(tvb, tree, preferences.framing.size, pduLength, dissectPdu)
  else
    dissectMessage(tvb, pinfo, tree, 0, tvb:captured_len(), tvb:reported_len())
    if isShown then
      pinfo.cols.info = infoText(tvb)
    end
  end
  return tvb:captured_len()
end

md.dissector = dissect

DissectorTable.get("udp.port"):add_for_decode_as(md)
DissectorTable.get("tcp.port"):add_for_decode_as(md)

-- Whether the message just walked over is one beyond reasonable doubt: at least one record, all with ids of the
-- dictionary and lengths of their types, up to the last byte.
local function isConvincing()
  for i = 1, message.count do
    local record = message[i]
    for _, found in ipairs(not record.isSound and record.problems or {}) do
      if found.problem ~= problemsByName.repeated_field then
        return false
      end
    end
  end
  return message.count ~= 0 and message.hasMark
end

md:register_heuristic("udp", function(tvb, pinfo, tree)
  if not preferences.heuristic or tvb:captured_len() ~= tvb:reported_len() then
    return false
  end
  walk(tvb:raw(), 0, false)
  if not isConvincing() then
    return false
  end
  dissect(tvb, pinfo, tree)
  return true
end)

readPreferences()

-- ---------------------------------------------------------------------------------------------------------------------
-- 5. Statistics

local function newTally()
  return { messages = 0, bytes = 0, withProblems = 0, below = {} }
end

-- A tally below another one.
local function tallyBelow(tally, name)
  tally.below[name] = tally.below[name] or newTally()
  return tally.below[name]
end

-- Counts a message in total, for its encoding and for its symbol.
local function countMessage(total, noted)
  local encoding = tallyBelow(total, noted.encoding or "unknown encoding")
  for _, tally in ipairs({ total, encoding, tallyBelow(encoding, noted.symbol or "no symbol") }) do
    tally.messages, tally.bytes = tally.messages + 1, tally.bytes + noted.size
    tally.withProblems = tally.withProblems + (noted.problems ~= 0 and 1 or 0)
  end
end

local function reportOf(total)
  -- Wireshark's window for text is 72 columns wide. A message with several problems counts once.
  local title = format("%-28s %9s %8s %11s %9s", "Encoding, symbol", "Messages", "Share", "Bytes", "Problems")
  local lines = { ("="):rep(#title), title, ("-"):rep(#title) }
  local function addLine(indent, name, tally)
    local share = total.messages == 0 and 0 or 100 * tally.messages / total.messages
    lines[#lines + 1] = format("%-28s %9d %7.2f%% %11d %9d", ("  "):rep(indent) .. name, tally.messages, share,
      tally.bytes, tally.withProblems)
    local names = {}
    for key in pairs(tally.below) do
      names[#names + 1] = key
    end
    table.sort(names)
    for _, key in ipairs(names) do
      addLine(indent + 1, key, tally.below[key])
    end
  end
  addLine(0, "Market data messages", total)
  lines[#lines + 1] = lines[1]
  return table.concat(lines, "\n") .. "\n"
end

-- Starts counting the messages that pass `filter`; `draw` is called with the report whenever there is a new one.
local function startStatistics(filter, draw)
  local total = newTally()
  local listener = Listener.new("frame", filter and filter ~= "" and "md and (" .. filter .. ")" or "md")
  listeners = listeners + 1
  function listener.packet(pinfo)
    if lastFrame.number == pinfo.number then
      for _, noted in ipairs(lastFrame) do
        countMessage(total, noted)
      end
    end
    lastFrame = { number = 0 }
  end
  function listener.draw()
    draw(reportOf(total))
  end
  function listener.reset()
    lastFrame = { number = 0 }
    total = newTally()
  end
  return listener
end

-- tshark -z md,tree or -z md,tree,FILTER
register_stat_cmd_arg("md,tree", function(argument)
  local isStarted, reason = pcall(startStatistics, (argument or ""):match("^md,tree,(.*)$"), function(text)
    io.stdout:write(text)
  end)
  if not isStarted then
    report_failure("md,tree: " .. tostring(reason))
  end
end)

if gui_enabled() then
  register_menu("Market Data Messages", function()
    local window = TextWindow.new("Market Data Messages")
    local listener = startStatistics(get_filter and get_filter() or nil, function(text)
      window:set(text)
    end)
    window:set_atclose(function()
      listener:remove()
      listeners = listeners - 1
    end)
    retap_packets()
  end, MENU_PACKET_STAT_UNSORTED or MENU_STAT_UNSORTED)
end

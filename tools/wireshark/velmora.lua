-- Velmora for Wireshark and tshark: what host and target say to each other, in words.
--
-- Install: copy this one file into Wireshark's personal plug-in folder (Help, About, Folders). What the
-- fields are called and which filters are worth knowing stands in docs/wireshark.md; what goes over the
-- wire in docs/protocol.md.
--
-- How it is made: a first look at each datagram, in the order of the capture, remembers what belongs
-- together (`analyse`), one record a frame. Showing a datagram (`show`) reads its bytes and its record and
-- changes nothing, so it may come any number of times and in any order. Bytes from the wire are never
-- trusted: what is no sound datagram gets an expert info, as does everything that looks odd.
--
-- Written for Lua 5.2 (Wireshark up to 4.2) and for 5.3 and 5.4: whole numbers stay whole by math.floor.

local velmora = Proto("velmora", "KORVENTE Velmora network audio")

local HEADER = 16
local MAGIC = 100
local CONTROL_PORTS = "19642-19643"  -- targets are asked, and tell of themselves, there
local HOST_LOG_PORT = 19640          -- the driver's own log, syslog to this computer
local NO_LIMIT = 65535
local COMPLETE = 65535               -- status of a whole transfer

-- ---- numbers ----

local floor = math.floor

-- Bits from..from+count-1 of a number below 2^53.
local function bits(value, from, count) return floor(value / 2 ^ from) % floor(2 ^ count) end
local function has(value, mask) return floor(value / mask) % 2 == 1 end  -- mask: one bit
local function wrap16(value) return value % 65536 end
local function signed16(value)
    value = wrap16(value)
    return value >= 32768 and value - 65536 or value
end
local function towards_zero(value) return value >= 0 and floor(value) or -floor(-value) end

-- ---- words ----

-- The sample formats, bits 8..19 of a format word; one-bit formats are told apart below.
local SAMPLES = {
    {bit = 0x00100, name = "PCM 8", bits = 8, bytes = 1},
    {bit = 0x00200, name = "PCM 16", bits = 16, bytes = 2},
    {bit = 0x00400, name = "PCM 24", bits = 24, bytes = 3},
    {bit = 0x00800, name = "PCM 32", bits = 32, bytes = 4},
    {bit = 0x01000, name = "PCM 64", bits = 64, bytes = 8},
    {bit = 0x02000, name = "float 32", bits = 32, bytes = 4},
    {bit = 0x04000, name = "float 64", bits = 64, bytes = 8},
    {bit = 0x10000, name = "DSD", bits = 1, is_dsd = true},
    {bit = 0x20000, name = "DSD, 4-bit packing", bits = 4, is_dsd = true},
}
local CHANNELS = {
    {bit = 0x01, count = 1}, {bit = 0x02, count = 2}, {bit = 0x04, count = 4},
    {bit = 0x08, count = 6}, {bit = 0x10, count = 8}, {bit = 0x20, count = 16},
}
-- Bits 8..31 of the four one-bit formats that are in use.
local DSD_NAMES = {
    [0x25100] = "DSD LSB little", [0x29100] = "DSD LSB big",
    [0x26100] = "DSD MSB little", [0x2a100] = "DSD MSB big",
}
local DSD_CLASS = 0x02
local LOWEST_DSD_RATE = 2822400

local sample_names, sample_rows, channel_counts, channel_names = {}, {}, {}, {}
for _, row in ipairs(SAMPLES) do
    sample_names[row.bit], sample_rows[row.bit] = row.name, row
end
for _, row in ipairs(CHANNELS) do
    channel_counts[row.bit] = row.count
    channel_names[row.bit] = row.count == 1 and "1 channel" or row.count .. " channels"
end

-- A format word, given by its two halves.
local function read_format(low, high)
    local sample, class = bits(low, 8, 12) * 256, bits(low, 24, 8)
    local f = {
        is_none = low == 0 and high == 0,
        channel_code = bits(low, 0, 8),
        sample = sample,
        class = class,
        family = bits(high, 0, 3),
        multiplier = bits(high, 3, 13),
    }
    local row = sample_rows[sample]
    f.channels = channel_counts[f.channel_code] or 2
    f.bits_per_sample = row and row.bits or 16
    f.bytes_per_sample = row and (row.bytes or (class == DSD_CLASS and 4 or 2)) or 2
    f.frame_bytes = f.channels * f.bytes_per_sample
    -- The family of 8000 knows no multiples: with one it is no rate at all, and without one none either.
    if f.family == 2 then f.base_rate = 44100
    elseif f.family == 4 then f.base_rate = 48000
    elseif f.family == 1 and f.multiplier == 0 then f.base_rate = 8000
    else f.base_rate = 0 end
    f.rate = f.base_rate * f.multiplier
    local orders = {bits(low, 20, 1), bits(low, 21, 1), bits(low, 22, 1), bits(low, 23, 1)}
    f.is_valid = channel_counts[f.channel_code] ~= nil and row ~= nil
    if f.is_valid and row.is_dsd then
        f.is_valid = orders[1] + orders[2] == 1 and orders[3] + orders[4] == 1 and class == DSD_CLASS and
            f.rate >= LOWEST_DSD_RATE
    elseif f.is_valid then
        f.is_valid = bits(low, 20, 12) == 0
    end
    if not row then f.name = "unknown"
    elseif row.is_dsd then f.name = DSD_NAMES[bits(low, 8, 24)] or "DSD packed"
    else f.name = row.name end
    f.text = f.is_none and "none chosen" or
        string.format("%s, %d channels, %d Hz", f.name, f.channels, f.rate)
    return f
end

local YES_NO = {"yes", "no"}

-- One bit of a support mask each: where it stands and what it promises.
local MASK_BITS = {}
local function mask_bit(half, bit, key, name, group)
    table.insert(MASK_BITS, {half = half, bit = bit, key = "support.mask." .. key, name = name, group = group})
end
for _, row in ipairs(CHANNELS) do
    mask_bit("low", row.bit, "channels_" .. row.count, channel_names[row.bit], "channels")
end
for _, row in ipairs(SAMPLES) do
    local key = row.bit == 0x20000 and "dsd_packed" or row.name:lower():gsub(" ", "_")
    mask_bit("low", row.bit, key, row.name, "formats")
end
mask_bit("low", 0x100000, "dsd_lsb", "LSB first", "orders")
mask_bit("low", 0x200000, "dsd_msb", "MSB first", "orders")
mask_bit("low", 0x400000, "dsd_little", "words little-endian", "orders")
mask_bit("low", 0x800000, "dsd_big", "words big-endian", "orders")
mask_bit("low", 0x2000000, "dsd_words", "words of 32 bits", "orders")
mask_bit("high", 0x1, "base_8000", "8000", "bases")
mask_bit("high", 0x2, "base_44100", "44100", "bases")
mask_bit("high", 0x4, "base_48000", "48000", "bases")
for power = 0, 12 do
    local times = floor(2 ^ power)
    mask_bit("high", 8 * times, "times_" .. times, "x" .. times, "multiples")
end

local function mask_text(low, high)
    local groups = {}
    for _, row in ipairs(MASK_BITS) do
        if has(row.half == "low" and low or high, row.bit) then
            groups[row.group] = (groups[row.group] and groups[row.group] .. ", " or "") ..
                (row.group == "channels" and row.name:gsub(" .*", "") or row.name)
        end
    end
    local parts = {}
    if groups.formats then table.insert(parts, groups.formats) end
    if groups.orders then table.insert(parts, groups.orders) end
    if groups.channels then table.insert(parts, groups.channels .. " channels") end
    if groups.bases then
        table.insert(parts, groups.bases .. " Hz" .. (groups.multiples and " " .. groups.multiples or ""))
    end
    return #parts > 0 and table.concat(parts, "; ") or "nothing"
end

-- ---- fields ----

local F, all_fields = {}, {}
local function field(kind, key, ...)
    local f = ProtoField[kind]("velmora." .. key, ...)
    F[key] = f
    table.insert(all_fields, f)
end
local function number(key, name, words) field("uint16", key, name, base.DEC, words) end
local function hex(key, name, words) field("uint16", key, name, base.HEX, words) end
local function hex64(key, name) field("uint64", key, name, base.HEX) end
local function wide(key, name) field("uint32", key, name, base.DEC) end
local function text(key, name) field("string", key, name, base.UNICODE) end
local function bytes(key, name) field("bytes", key, name) end
local function truth(key, name) field("bool", key, name, base.NONE, YES_NO) end
-- One bit of a word of 16 or 32 bits.
local function flag(key, name, width, mask) field("bool", key, name, width, YES_NO, mask) end
local function frame(key, name, kind) field("framenum", key, name, base.NONE, kind) end

local IDS = {
    FIND_REQ = 0, FIND_ANS = 1, SINK_REQ = 2, SINK_ANS = 3, SUPPORT_REQ = 4, SUPPORT_ANS = 5, LATENCY_REQ = 6,
    LATENCY_ANS = 7, CONNECT_REQ = 8, CONNECT_ANS = 9, STREAM_DATA = 10, INFO_ANS = 11, DSICONNECT_REQ = 12,
    DSICONNECT_ANS = 13, DATASIZE_REQ = 14, DATASIZE_ANS = 15, CONFIG_REQ = 16, CONFIG_ANS = 17,
    CONNECTPRE_REQ = 18, CONNECTPRE_ANS = 19, PROFILE_REQ = 20, PROFILE_ANS = 21, HELLO_REQ = 22,
    HELLO_ANS = 23, CLIENT_REQ = 24, CLIENT_ANS = 25, TRANSFER_REQ = 26, TRANSFER_ANS = 27, TRANSFER_DATA = 28,
    TRANSFER_ACK = 29, TRANSFEREND_REQ = 30, TRANSFEREND_ANS = 31, INFOA_REQ = 32, INFOA_ANS = 33,
    INFOB_REQ = 34, INFOB_ANS = 35, VALUE_REQ = 36, VALUE_ANS = 37, LOG_REQ = 40, LOG_ANS = 41,
    NOPBREAK_REQ = 42, INFOINDEX_REQ = 44, INFOINDEX_ANS = 45, ITEM_REQ = 48, ITEM_ANS = 49, ITEMVALUE_REQ = 50,
    ITEMVALUE_ANS = 51, NOTIFY = 0x8001,
}
local message_names = {}
for name, id in pairs(IDS) do message_names[id] = name end

-- the header, and what stands behind it
number("magic", "Magic")
hex("size_word", "Size word")
number("length", "Length (bytes)")
number("filler_count", "Filler (bytes)")
number("id", "Message", message_names)
hex("flags", "Flags")
flag("flags.accepted", "Accepted", 16, 0x0001)
flag("flags.resend", "Asks for packets again", 16, 0x0008)
flag("flags.asks_info", "Asks for feedback", 16, 0x0020)
flag("flags.last_of_burst", "Last of its burst", 16, 0x0040)
field("uint16", "flags.phase", "Phase", base.DEC,
      {[0] = "as it is", [1] = "as it is", [2] = "inverted", [3] = "as it is"}, 0x0180)
bytes("arg", "Arg")
number("payload_length", "Payload length (bytes)")
bytes("payload", "Payload")
bytes("filler", "Filler")
bytes("surplus", "Surplus")
bytes("data", "Data")

-- what belongs together
frame("request_in", "Request in", frametype.REQUEST)
frame("response_in", "Response in", frametype.RESPONSE)
field("relative_time", "response_time", "Response time")
frame("repeat_of", "First try in", frametype.RETRANS_PREV)
number("try", "Try")

-- the format word
hex64("format", "Format word")
text("format.text", "Format")
field("uint8", "format.channel_code", "Channel code", base.HEX, channel_names)
field("uint32", "format.sample", "Sample format", base.HEX, sample_names)
flag("format.dsd_lsb", "DSD: LSB first", 32, 0x100000)
flag("format.dsd_msb", "DSD: MSB first", 32, 0x200000)
flag("format.dsd_little", "DSD: words little-endian", 32, 0x400000)
flag("format.dsd_big", "DSD: words big-endian", 32, 0x800000)
field("uint8", "format.dsd_class", "DSD: word class", base.HEX, {[0] = "none", [DSD_CLASS] = "words of 32 bits"})
field("uint8", "format.rate_family", "Rate family", base.HEX,
      {[0] = "none", [1] = "8000", [2] = "44100", [4] = "48000"})
number("format.rate_multiplier", "Rate multiplier")
number("format.channels", "Channels")
number("format.bits_per_sample", "Bits per sample")
number("format.bytes_per_sample", "Bytes per sample")
number("format.frame_bytes", "Bytes per frame")
wide("format.base_rate", "Base rate (Hz)")
wide("format.rate", "Rate (Hz)")
truth("format.valid", "Valid")

-- discovery
number("find.mode", "Mode", {[0] = "search", [1] = "watch"})
hex64("find.product", "Product")
text("find.target_name", "Target's name")
number("sink.no", "Sink")
number("sink.one", "Always 1")
number("sink.count", "Number of sinks")
number("sink.port", "Sink's port")
number("sink.version", "Sink's version")
text("sink.name", "Sink's name")
text("config_text", "Configuration text")
hex64("hello.own_id", "Host's product")
text("hello.client_name", "Host's name")
text("product_text", "Product in characters")
number("notify.word", "Change word")

-- negotiation
hex64("support.selector", "Selector")
text("support.asks", "Asks for")
hex64("support.mask", "Mask")
text("support.mask_text", "Formats")
for _, row in ipairs(MASK_BITS) do flag(row.key, row.name, 32, row.bit) end
number("latency.wanted", "Latency wanted (100 µs)")
number("latency.latency", "Latency (100 µs)")
number("latency.hardware", "Latency of the hardware (100 µs)")
number("datasize.mtu", "MTU (bytes)")
number("datasize.max_burst", "Largest burst (bytes)")
number("datasize.seen_length", "Probe: bytes seen")
hex("datasize.seen_sum", "Probe: sum seen")
number("datasize.probe_length", "Probe: length (bytes)")
hex("datasize.probe_sum", "Probe: sum")
truth("datasize.probe_good", "Probe: the pattern")
truth("datasize.came_through", "Probe: came through")
wide("datasize.usable_mtu", "Probe: MTU that works (bytes)")
number("profile.min_cycle", "Shortest cycle (10 µs)")
number("profile.max_cycle", "Longest cycle (10 µs)")
hex("profile.flags", "Profile flags")
flag("profile.unbound", "The bounds do not bind", 16, 0x01)
flag("profile.var", "Var: equal packets, the cycle follows the feedback", 16, 0x02)
flag("profile.sweep", "Search from the shortest cycle upward", 16, 0x04)
flag("profile.several", "Several packets a cycle", 16, 0x08)
flag("profile.random", "Cycle drawn at random", 16, 0x10)
hex64("connectpre.class_word", "Class word")
hex("connectpre.class", "Class",
    {[0x100] = "PCM integer", [0x200] = "floating point", [0x400] = "other", [0x800] = "DSD"})
number("connectpre.latency", "Latency wanted (100 µs)")
hex64("connectpre.word", "Word")
number("connectpre.granted", "Latency granted (100 µs)")
hex64("client.product", "Host's product")
text("client.name", "Host's name")
number("connect.stream_port", "Stream port")
truth("connect.wants_invert", "Wants inverted polarity")

-- the stream
number("stream.sequence", "Sequence number")
truth("stream.new", "New")
truth("stream.again", "Sent again, or late")
truth("stream.fills_gap", "Fills a gap")
number("stream.gap", "Missing in front of it (packets)")
number("stream.gap_from", "First of the missing")
frame("stream.first_in", "First sent in", frametype.RETRANS_PREV)
frame("stream.asked_in", "Asked for in", frametype.REQUEST)
number("stream.burst_packets", "Packets of the burst")
field("relative_time", "stream.cycle", "Since the last burst")
wide("stream.frames", "Frames of audio")
field("double", "feedback", "Feedback")
hex("info.feedback_word", "Feedback word")
number("info.fill", "Fill")
number("info.fill_target", "Fill wanted")
field("uint8", "info.encoding", "Encoding", base.DEC,
      {[0] = "none", [1] = "offset by 8192", [2] = "15 bits signed", [3] = "fill against wanted"})
field("int16", "info.value", "Feedback, 16384 is 1.0", base.DEC)
truth("info.wants_invert", "Wants inverted polarity")
number("info.resend_from", "Oldest wanted again")
number("info.resend_last", "Newest missed")
number("info.resend_count", "Wanted again (packets)")

-- the target's log
number("log.wanted", "Lines wanted", {[0] = "no", [1] = "yes"})
number("log.kind", "Kind", {[2] = "a line of text"})
text("log.text", "Line")

-- transfer
number("transfer.channel", "Channel (its number plus 1)")
number("transfer.channels", "Number of channels")
number("transfer.burst_limit", "Largest burst (bytes)")
number("transfer.packet_bytes_1", "Bytes of a packet, less 1")
number("transfer.block_packets_1", "Packets of a block, less 1")
number("transfer.blocks_1", "Blocks, less 1")
field("uint64", "transfer.capacity", "Room (bytes)", base.DEC)
truth("transfer.last", "Last of its burst")
number("transfer.seq", "Packet number")
number("transfer.index", "Place in its block")
number("transfer.block", "Block")
truth("transfer.new", "New")
truth("transfer.again", "Sent again, or late")
truth("transfer.fills_gap", "Fills a gap")
number("transfer.gap", "Missing in front of it (packets)")
number("transfer.gap_from", "First of the missing")
frame("transfer.first_in", "First sent in", frametype.RETRANS_PREV)
truth("transfer.burst_arrived", "The burst has arrived")
hex("transfer.crc", "CRC")
hex("transfer.crc_computed", "CRC of what this capture holds")
truth("transfer.crc_good", "CRC is right")
number("transfer.status", "Status")

-- settings and texts
text("infoa.text", "Text A")
text("infob.text", "Text B")
number("infoindex.index", "Index")
text("infoindex.text", "Text")
number("value.value", "Value")
number("item.no", "Item")
number("item.count", "Number of items")
number("item.type", "Type", {[1] = "number", [2] = "number, signed", [3] = "switch", [4] = "text", [5] = "choice",
                             [6] = "choice with text"})
field("int32", "item.lower", "Lower bound", base.DEC)
field("int32", "item.upper", "Upper bound", base.DEC)
text("item.label", "Label")
number("item.mode", "Mode", {[0] = "read", [1] = "write", [2] = "read the alternative value", [3] = "read a label"})
field("int32", "item.value", "Value", base.DEC)
field("int32", "item.current", "Current value", base.DEC)
field("int32", "item.second", "Second value", base.DEC)
text("item.text", "Text")

velmora.fields = all_fields

-- Single values that mean something else than themselves.
local SPECIAL = {
    ["sink.no"] = {[0] = "how many are there?"},
    ["sink.port"] = {[0] = "no such sink"},
    ["notify.word"] = {[0] = "the target has started anew"},
    ["datasize.max_burst"] = {[NO_LIMIT] = "no limit"},
    ["transfer.channel"] = {[0] = "how many are there?"},
    ["transfer.burst_limit"] = {[NO_LIMIT] = "no limit"},
    ["transfer.status"] = {[COMPLETE] = "complete"},
    ["item.no"] = {[0] = "the list, or all"},
    ["latency.wanted"] = {[0] = "only asks"},
}

-- ---- expert infos ----

local E, all_experts = {}, {}
local function mark(key, title, group, severity)
    local e = ProtoExpert.new("velmora.expert." .. key, title, expert.group[group], expert.severity[severity])
    E[key] = e
    table.insert(all_experts, e)
end
-- what a reader drops before it looks at the id
mark("too_short", "Shorter than a header", "MALFORMED", "ERROR")
mark("bad_magic", "Magic is not 100", "MALFORMED", "ERROR")
mark("bad_length", "Claims more than came", "MALFORMED", "ERROR")
-- what it takes although it is odd
mark("small_length", "Claims less than a header and its filler", "PROTOCOL", "WARN")
mark("filler_not_zero", "Filler is not zero", "PROTOCOL", "WARN")
mark("surplus", "Longer than it claims", "PROTOCOL", "NOTE")
mark("long_form", "The longer form of a packet that is sent again", "SEQUENCE", "CHAT")
mark("unknown_id", "Unknown message", "UNDECODED", "WARN")
mark("unused_not_zero", "Not zero where nothing is told", "PROTOCOL", "NOTE")
mark("unknown_flags", "Flags that this message does not have", "PROTOCOL", "NOTE")
mark("unread_payload", "A payload that nobody reads", "PROTOCOL", "NOTE")
mark("cut_capture", "The capture holds less than was sent", "UNDECODED", "NOTE")
-- requests and answers
mark("refused", "Refused", "RESPONSE_CODE", "NOTE")
mark("unasked", "An answer without a request in this capture", "SEQUENCE", "NOTE")
mark("no_answer", "No answer in this capture", "SEQUENCE", "NOTE")
mark("answered_again", "A further answer to the same request", "SEQUENCE", "NOTE")
mark("repeated", "The same request once more", "SEQUENCE", "NOTE")
mark("echo", "The request came back instead of an answer", "PROTOCOL", "WARN")
mark("wrong_echo", "Answers for another number than was asked for", "PROTOCOL", "WARN")
mark("guessed", "Read without its request", "ASSUMPTION", "CHAT")
-- the stream
mark("invalid_format", "No valid format", "PROTOCOL", "WARN")
mark("gap", "Packets are missing", "SEQUENCE", "WARN")
mark("again", "Sent again", "SEQUENCE", "NOTE")
mark("fills_gap", "Fills a gap: sent again, or late on its way", "SEQUENCE", "NOTE")
mark("part_frame", "Not whole frames", "PROTOCOL", "WARN")
mark("asks_again", "Asks for packets again", "SEQUENCE", "NOTE")
mark("asks_ahead", "Asks for a number that was not sent yet", "SEQUENCE", "WARN")
mark("target_ends", "The target ends the stream", "SEQUENCE", "NOTE")
mark("probe_wrong", "Not the probe's pattern", "PROTOCOL", "WARN")
-- transfer and the rest
mark("burst_incomplete", "The burst has not arrived whole", "SEQUENCE", "NOTE")
mark("crc_wrong", "The CRC is wrong", "CHECKSUM", "ERROR")
mark("crc_unchecked", "The CRC was not checked: not all of the transfer is here", "CHECKSUM", "CHAT")
mark("status_incomplete", "The transfer is not complete", "RESPONSE_CODE", "NOTE")
mark("word_repeated", "The change word did not change", "SEQUENCE", "NOTE")
mark("restarted", "The target has started anew", "SEQUENCE", "NOTE")
mark("internal", "A fault of this dissector", "DEBUG", "ERROR")
velmora.experts = all_experts

-- ---- preferences ----

velmora.prefs.ports = Pref.range("UDP ports", CONTROL_PORTS, "Ports that are always Velmora: the control port and " ..
    "the notify port. Ports of sinks and streams are learned from the capture.", 65535)
velmora.prefs.guess = Pref.bool("Recognise streams whose beginning is missing", true,
    "Looks at UDP datagrams on any port whether they are sound Velmora datagrams.")
velmora.prefs.crc = Pref.bool("Check the CRC of transfers", true, "Takes a moment for large transfers.")

-- ---- CRC-16/USB ----

local Crc = {}
do
    local ops = bit or bit32  -- Wireshark brings one of the two
    local rows
    if ops then
        rows = {}
        for byte = 0, 255 do
            local rest = byte
            for _ = 1, 8 do
                local low = rest % 2
                rest = ops.rshift(rest, 1)
                if low == 1 then rest = ops.bxor(rest, 0xa001) end
            end
            rows[byte] = rest
        end
    end
    Crc.exists = ops ~= nil
    Crc.start = 0xffff
    function Crc.add(rest, data)
        local bxor, rshift, band = ops.bxor, ops.rshift, ops.band
        for i = 1, #data do
            rest = bxor(rshift(rest, 8), rows[band(bxor(rest, data:byte(i)), 0xff)])
        end
        return rest
    end
    function Crc.value(rest) return 0xffff - rest end
end

-- ---- what is remembered ----

local addresses     -- that came, in their order; by_text: where to look first
local frames        -- number of a frame: its record
local open          -- "host>target": answer's id: record of the newest request
local streams       -- "host>target": counter, bursts, format
local transfers     -- "host>target channel": counter, geometry, CRC
local item_types    -- "target": item: type
local learned       -- "address|port" of sinks and streams: frame that told of it; by_port: whether there is one
local notify_words  -- "target": word and frame of its last NOTIFY

local function forget()
    addresses = {by_text = {}}
    frames, open, streams, transfers = {}, {}, {}, {}
    item_types, learned, notify_words = {}, {by_port = {}}, {}
end
forget()
velmora.init = forget  -- a new capture, or the same once more

-- An address as a key: the how-manieth it is in this capture. As text it could be a name that the system has
-- looked up, and another one a moment later, so texts are only where the search begins. It does not go far: a
-- link with more speakers than that is no link of targets, and each new one would cost more than the last.
local ADDRESSES_COMPARED = 256
local function address_key(address)
    local text = tostring(address)
    local row = addresses.by_text[text]
    if row and row.address == address then return row.key end
    for i = 1, math.min(#addresses, ADDRESSES_COMPARED) do
        if addresses[i].address == address then
            addresses.by_text[text] = addresses[i]
            return addresses[i].key
        end
    end
    row = {address = address, key = "a" .. #addresses + 1}
    table.insert(addresses, row)
    addresses.by_text[text] = row
    return row.key
end
local EVERYBODY = Address.ipv6("ff02::1")  -- the group that hosts ask

-- Numbers of 16 bits that count packets and wrap: which are new, which come again, what is missing.
-- Inside it counts on without a wrap, so that a number of the last lap is not taken for one of this.
local Counter = {}
Counter.__index = Counter
function Counter.new(next_number)
    local lap = 65536 + (next_number or 0)
    return setmetatable({next = next_number, lap = lap, begin = lap, seen = {}}, Counter)
end
local NEW = {is_new = true}  -- as nearly all are: one record for all of them
function Counter:take(value, frame_number)
    if not self.next then
        self.next, self.lap, self.begin = value, 65536 + value, 65536 + value
    end
    local off = signed16(value - self.next)
    local place, result = self.lap + off, {is_new = off >= 0}
    local before = self.seen[value]
    if off >= 0 then
        result.gap, result.gap_from = off, self.next
        self.next, self.lap = wrap16(value + 1), place + 1
        self.seen[value] = {place = place, frame = frame_number}
        if off == 0 then return NEW end
    else
        if before and before.place == place then
            result.first_in = before.frame
        else
            -- What lies in front of the first packet was not missed.
            result.fills_gap = place >= self.begin
            self.seen[value] = {place = place, frame = frame_number}
        end
    end
    return result
end

-- ---- messages ----

-- By id. All: `name`; `flags` that it may have; `used` words of arg, `plain` ones that are a field each;
-- `text`, the field of its payload; `analyse` and `show` what is its own.
-- Requests: `answer`, its id; `asks` whether this one wants it; `is_counted` for packets with a number.
-- Answers: `is_answer`; `answers` whether it belongs to that request; `echoes` the words that it repeats,
-- where the request's is not 0 or `always_echoes`; `may_come_unasked`; `needs_no_bit` that accepts.
local messages = {}
local ACCEPTED, PHASE = 0x0001, 0x0180
local function message(name, m)
    m.name, messages[IDS[name]] = name, m
end
local function request(name, answer, m)
    m = m or {}
    m.answer, m.flags = IDS[answer], m.flags or 0
    message(name, m)
end
local function reply(name, m)
    m = m or {}
    m.is_answer, m.flags = true, m.flags or ACCEPTED
    message(name, m)
end

local function generated(item) item:set_generated() return item end
local function told(c, format_string, ...) c.info[#c.info + 1] = string.format(format_string, ...) end

-- A text of the payload, as bytes that are no UTF-8 are shown too.
local function show_text(c, key)
    if c.payload then
        c.tree:add_packet_field(F[key], c.payload, ENC_UTF_8)
    else
        c.tree:add(F[key], c.tvb(HEADER, 0), "")
    end
end

-- The same for a line of the packet list: no more than a few words, and nothing that a terminal obeys.
local QUOTED_BYTES = 60
local function quoted(range)
    local shown = range:string(ENC_UTF_8):gsub("%c", "."):gsub("\194[\128-\159]", ".")
    if #shown > QUOTED_BYTES then
        local cut = QUOTED_BYTES
        while cut > 0 and shown:byte(cut + 1) >= 0x80 and shown:byte(cut + 1) < 0xc0 do cut = cut - 1 end
        shown = shown:sub(1, cut) .. "..."
    end
    return "\"" .. shown .. "\""
end

local function product_text(c, at)
    local raw = c.tvb:raw(at, 8)
    local shown
    if raw == string.rep("\0", 8) then shown = "not told"
    elseif raw:find("^[A-Za-z0-9 _.-]+$") then shown = raw
    else shown = "0x" .. raw:reverse():gsub(".", function(byte) return string.format("%02x", byte:byte()) end) end
    generated(c.tree:add(F.product_text, c.tvb(at, 8), shown))
    return shown
end

local function show_format(c)
    local low, high = c.tvb(8, 4):le_uint(), c.tvb(12, 4):le_uint()
    local f = read_format(low, high)
    local item = c.tree:add_le(F.format, c.tvb(8, 8))
    item:append_text(": " .. f.text)
    generated(item:add(F["format.text"], c.tvb(8, 8), f.text))
    item:add(F["format.channel_code"], c.tvb(8, 1), f.channel_code)
    item:add(F["format.sample"], c.tvb(8, 4), f.sample)
    for _, key in ipairs({"dsd_lsb", "dsd_msb", "dsd_little", "dsd_big"}) do
        item:add_le(F["format." .. key], c.tvb(8, 4))
    end
    item:add(F["format.dsd_class"], c.tvb(11, 1), f.class)
    item:add(F["format.rate_family"], c.tvb(12, 1), f.family)
    item:add(F["format.rate_multiplier"], c.tvb(12, 2), f.multiplier)
    for _, key in ipairs({"channels", "bits_per_sample", "bytes_per_sample", "frame_bytes", "base_rate", "rate"}) do
        generated(item:add(F["format." .. key], c.tvb(8, 8), f[key]))
    end
    generated(item:add(F["format.valid"], c.tvb(8, 8), f.is_valid))
    if not f.is_valid and not f.is_none then item:add_proto_expert_info(E.invalid_format) end
    told(c, "%s", f.text)
    return f
end

local function append_ms(item, tenths) item:append_text(string.format(" = %g ms", tenths / 10)) end

-- Fields of arg that are one word each: {offset, key}.
local function show_plain(c, list)
    for _, row in ipairs(list) do
        local item = c.tree:add_le(F[row[2]], c.tvb(row[1], 2))
        local special = SPECIAL[row[2]] and SPECIAL[row[2]][c.word(row[1])]
        if special then item:append_text(": " .. special)
        elseif row.ms then append_ms(item, c.word(row[1])) end
    end
end

-- ---- discovery ----

request("FIND_REQ", "FIND_ANS", {used = {8}, plain = {{8, "find.mode"}}, show = function(c)
    if c.word(8) == 1 then told(c, "watch") end
end})
reply("FIND_ANS", {used = {8, 10, 12, 14}, text = "find.target_name", show = function(c)
    c.tree:add_le(F["find.product"], c.tvb(8, 8))
    told(c, "%s", product_text(c, 8))
end})
request("SINK_REQ", "SINK_ANS", {used = {8, 14}, plain = {{8, "sink.no"}, {14, "sink.one"}}, show = function(c)
    if c.word(8) == 0 then told(c, "how many?") else told(c, "sink %d", c.word(8)) end
    if c.word(14) ~= 1 then c.tree:add_proto_expert_info(E.unused_not_zero, "The last word of arg is not 1") end
end})

-- An answer whose layout depends on what was asked for: the request's word, or a guess.
local function is_count(c, guess)
    if c.record.asked then return c.record.asked == 0 end
    c.tree:add_proto_expert_info(E.guessed, guess and "Read as the answer to 0: its request is not in this capture"
        or "Read as the answer to a number: its request is not in this capture")
    return guess
end

reply("SINK_ANS", {used = {8, 12, 14}, text = "sink.name", analyse = function(c)
    if c.accepted and c.word(12) ~= 0 then c.learn(c.source, c.word(12)) end
end, show = function(c)
    show_plain(c, {{8, "sink.count"}, {12, "sink.port"}, {14, "sink.version"}})
    if not c.accepted then return end
    if is_count(c, c.word(12) == 0 and not c.payload) then
        told(c, "%d sinks", c.word(8))
    else
        generated(c.tree:add(F["sink.no"], c.record.asked or c.word(8)))
        if c.word(12) == 0 then told(c, "no such sink")
        else told(c, "port %d, version %d", c.word(12), c.word(14)) end
    end
end})
request("CONFIG_REQ", "CONFIG_ANS")
reply("CONFIG_ANS", {text = "config_text"})
request("HELLO_REQ", "HELLO_ANS", {flags = 1, used = {8, 10, 12, 14}, text = "hello.client_name", show = function(c)
    c.tree:add_le(F["hello.own_id"], c.tvb(8, 8))
    told(c, "%s", product_text(c, 8))
end})
reply("HELLO_ANS")
message("NOTIFY", {flags = 0, used = {8}, plain = {{8, "notify.word"}}, analyse = function(c)
    local last = notify_words[c.source_end]
    if last and last.word == c.word(8) then c.record.word_repeated = last.frame end
    notify_words[c.source_end] = {word = c.word(8), frame = c.number}
end, show = function(c)
    told(c, "word %d", c.word(8))
    if c.record.word_repeated then
        c.tree:add_proto_expert_info(E.word_repeated,
            string.format("The same word as in frame %d: this is no sign of life", c.record.word_repeated))
    elseif c.word(8) == 0 then
        c.tree:add_proto_expert_info(E.restarted)
    end
end})

-- ---- negotiation ----

local function support_asks(low, high)
    if high == 0 and low == 0 then return "summary" end
    if high == 0 and low == 0x100000 then return "DSD, LSB first" end
    if high == 0 and low == 0x200000 then return "DSD, MSB first" end
    if high == 0 and bits(low, 8, 8) * 256 == low then return "PCM" end
    return "unknown"
end
request("SUPPORT_REQ", "SUPPORT_ANS", {used = {8, 10, 12, 14}, analyse = function(c)
    c.record.asks = support_asks(c.tvb(8, 4):le_uint(), c.tvb(12, 4):le_uint())
end, show = function(c)
    local asks = support_asks(c.tvb(8, 4):le_uint(), c.tvb(12, 4):le_uint())
    c.tree:add_le(F["support.selector"], c.tvb(8, 8))
    generated(c.tree:add(F["support.asks"], c.tvb(8, 8), asks))
    told(c, "%s", asks)
end})
reply("SUPPORT_ANS", {used = {8, 10, 12, 14}, show = function(c)
    local low, high = c.tvb(8, 4):le_uint(), c.tvb(12, 4):le_uint()
    local of = c.paired and c.paired.asks
    local shown = mask_text(low, high)
    local item = c.tree:add_le(F["support.mask"], c.tvb(8, 8))
    for _, row in ipairs(MASK_BITS) do item:add_le(F[row.key], row.half == "low" and c.tvb(8, 4) or c.tvb(12, 4)) end
    generated(c.tree:add(F["support.mask_text"], c.tvb(8, 8), shown))
    if of then generated(c.tree:add(F["support.asks"], of)) end
    if c.paired and c.paired.id == IDS.NOPBREAK_REQ then told(c, "to NOPBREAK_REQ")
    else told(c, "%s%s", of and of .. ": " or "", shown) end
end})
request("LATENCY_REQ", "LATENCY_ANS", {used = {8}, plain = {{8, "latency.wanted", ms = true}}, show = function(c)
    if c.word(8) == 0 then told(c, "asks") else told(c, "wants %g ms", c.word(8) / 10) end
end})
reply("LATENCY_ANS", {used = {8, 10},
    plain = {{8, "latency.latency", ms = true}, {10, "latency.hardware", ms = true}}, show = function(c)
    told(c, "%g ms and %g ms of hardware", c.word(8) / 10, c.word(10) / 10)
end})

-- The probe's pattern: byte i is (i + 122) & 0xff. Whether it is, and its sum in 16 bits.
local function read_probe(raw)
    local sum, is_good = 0, true
    for i = 1, #raw do
        local byte = raw:byte(i)
        sum = sum + byte
        if byte ~= (i - 1 + 122) % 256 then is_good = false end
    end
    return is_good, wrap16(sum)
end
request("DATASIZE_REQ", "DATASIZE_ANS", {reads_payload = true, analyse = function(c)
    local probe = c.whole_payload()
    if probe then c.record.probe_sum = select(2, read_probe(probe)) end
end, show = function(c)
    if c.payload_length == 0 then return end
    generated(c.tree:add(F["datasize.probe_length"], c.payload_length))
    told(c, "probe of %d bytes", c.payload_length)
    local probe = c.whole_payload()
    if not probe then return end
    local is_good, sum = read_probe(probe)
    generated(c.tree:add(F["datasize.probe_sum"], c.payload, sum))
    generated(c.tree:add(F["datasize.probe_good"], c.payload, is_good))
    if not is_good then c.tree:add_proto_expert_info(E.probe_wrong) end
end})
reply("DATASIZE_ANS", {used = {8, 10, 12, 14},
    plain = {{8, "datasize.mtu"}, {10, "datasize.max_burst"}, {12, "datasize.seen_length"},
             {14, "datasize.seen_sum"}}, show = function(c)
    told(c, "MTU %d, burst %s", c.word(8), c.word(10) == NO_LIMIT and "without limit" or c.word(10) .. " bytes")
    local probe = c.paired
    if not (probe and probe.probe_sum) then return end
    local came = c.accepted and c.word(14) == probe.probe_sum
    generated(c.tree:add(F["datasize.came_through"], came))
    if came then generated(c.tree:add(F["datasize.usable_mtu"], c.word(12) + 64)) end
    told(c, came and "the probe came through" or "the probe did not come through")
end})
request("PROFILE_REQ", "PROFILE_ANS", {used = {8, 10, 12, 14}, show = show_format})
reply("PROFILE_ANS", {used = {8, 10, 12}, show = function(c)
    for _, row in ipairs({{8, "profile.min_cycle"}, {10, "profile.max_cycle"}}) do
        c.tree:add_le(F[row[2]], c.tvb(row[1], 2)):append_text(string.format(" = %d µs", c.word(row[1]) * 10))
    end
    local item = c.tree:add_le(F["profile.flags"], c.tvb(12, 2))
    for _, key in ipairs({"unbound", "var", "sweep", "several", "random"}) do
        item:add_le(F["profile." .. key], c.tvb(12, 2))
    end
    told(c, "%d to %d µs, %s", c.word(8) * 10, c.word(10) * 10, has(c.word(12), 2) and "Var" or "Fix")
end})
request("NOPBREAK_REQ", "SUPPORT_ANS")
request("CONNECTPRE_REQ", "CONNECTPRE_ANS", {used = {8, 10, 12, 14}, show = function(c)
    local f = read_format(c.tvb(8, 4):le_uint(), c.tvb(12, 4):le_uint())
    local item = c.tree:add_le(F["connectpre.class_word"], c.tvb(8, 8))
    item:add(F["format.channel_code"], c.tvb(8, 1), f.channel_code)
    item:add(F["connectpre.class"], c.tvb(8, 2), bits(c.word(8), 8, 8) * 256)
    append_ms(item:add_le(F["connectpre.latency"], c.tvb(10, 2)), c.word(10))
    item:add(F["format.rate_family"], c.tvb(12, 1), f.family)
    item:add(F["format.rate_multiplier"], c.tvb(12, 2), f.multiplier)
    generated(item:add(F["format.channels"], c.tvb(8, 1), f.channels))
    generated(item:add(F["format.rate"], c.tvb(12, 2), f.rate))
    told(c, "%d channels, %d Hz, %g ms", f.channels, f.rate, c.word(10) / 10)
end})
reply("CONNECTPRE_ANS", {used = {8, 10, 12, 14}, show = function(c)
    c.tree:add_le(F["connectpre.word"], c.tvb(8, 8))
    append_ms(c.tree:add_le(F["connectpre.granted"], c.tvb(10, 2)), c.word(10))
    told(c, "%g ms", c.word(10) / 10)
end})
request("CLIENT_REQ", "CLIENT_ANS", {flags = 1, used = {8, 10, 12, 14}, text = "client.name", show = function(c)
    c.tree:add_le(F["client.product"], c.tvb(8, 8))
    told(c, "%s", product_text(c, 8))
end})
reply("CLIENT_ANS")
request("CONNECT_REQ", "CONNECT_ANS", {used = {8, 10, 12, 14}, analyse = function(c)
    c.record.format = read_format(c.tvb(8, 4):le_uint(), c.tvb(12, 4):le_uint())
end, show = show_format})
reply("CONNECT_ANS", {flags = ACCEPTED + PHASE, used = {8}, plain = {{8, "connect.stream_port"}},
analyse = function(c)
    if not c.accepted or c.record.answered_before then return end
    local port = c.word(8)
    c.learn(c.source, port)
    local asked = c.record.request and frames[c.record.request]
    local between = c.host .. ">" .. c.source .. "|" .. port
    streams[between] = {counter = Counter.new(0), format = asked and asked.format, burst = 0}
    -- From here on the two speak at that port, and what they say in either direction is ours, whatever others
    -- have registered for it. Wireshark takes the two ends from the packet in hand.
    local source_port = c.pinfo.src_port
    pcall(function()
        c.pinfo.src_port = port
        c.pinfo.conversation = velmora
    end)
    c.pinfo.src_port = source_port
end, show = function(c)
    local inverts = bits(c.flags, 7, 2) == 2
    generated(c.tree:add(F["connect.wants_invert"], c.tvb(6, 2), inverts))
    if not c.accepted then return end
    told(c, "port %d%s", c.word(8), inverts and ", inverted" or "")
end})
request("DSICONNECT_REQ", "DSICONNECT_ANS")
reply("DSICONNECT_ANS")

-- ---- the stream ----

local function stream_of(c)
    local stream = streams[c.between]
    if not stream then
        stream = {counter = Counter.new(nil), burst = 0}
        streams[c.between] = stream
    end
    return stream
end

-- What a counter found out, in the fields of `prefix`.
local function show_count(c, prefix, at)
    local count = c.record.count
    if not count then return end
    local item = c.tree
    local range = c.tvb(at, 2)
    generated(item:add(F[prefix .. "new"], range, count.is_new))
    generated(item:add(F[prefix .. "again"], range, not count.is_new))
    if count.gap then
        generated(item:add(F[prefix .. "gap"], range, count.gap))
        generated(item:add(F[prefix .. "gap_from"], range, count.gap_from))
        item:add_proto_expert_info(E.gap)
        told(c, "[%d missing]", count.gap)
    end
    if count.is_new then return end
    if count.fills_gap then
        generated(item:add(F[prefix .. "fills_gap"], range, true))
        item:add_proto_expert_info(E.fills_gap)
        told(c, "[fills a gap]")
    else
        item:add_proto_expert_info(E.again)
        told(c, "[again]")
    end
    if count.first_in then generated(item:add(F[prefix .. "first_in"], range, count.first_in)) end
end

-- A difference of two times in seconds, as Wireshark has them.
local function duration(seconds)
    local nanos = floor(seconds * 1e9 + 0.5)
    return NSTime.new(floor(nanos / 1e9), nanos % 1000000000)
end

request("STREAM_DATA", "INFO_ANS", {flags = 0x60, used = {8}, reads_payload = true, is_counted = true,
asks = function(c) return has(c.flags, 0x20) end,
plain = {{8, "stream.sequence"}}, analyse = function(c)
    local stream, value = stream_of(c), c.word(8)
    local record = c.record
    record.count = stream.counter:take(value, c.number)
    if not record.count.is_new and stream.wanted_from and wrap16(value - stream.wanted_from) < 32768 then
        record.asked_in = stream.wanted_in
    end
    record.format = stream.format
    stream.burst = stream.burst + 1
    if has(c.flags, 0x40) then
        record.burst_packets = stream.burst
        stream.burst = 0
        if stream.last_burst then record.cycle = c.time - stream.last_burst end
        stream.last_burst = c.time
    end
end, show = function(c)
    local record = c.record
    told(c, "%d, %d bytes%s%s", c.word(8), c.payload_length, has(c.flags, 0x40) and ", last" or "",
         has(c.flags, 0x20) and ", asks" or "")
    show_count(c, "stream.", 8)
    if record.asked_in then generated(c.tree:add(F["stream.asked_in"], record.asked_in)) end
    if record.burst_packets then generated(c.tree:add(F["stream.burst_packets"], record.burst_packets)) end
    if record.cycle then generated(c.tree:add(F["stream.cycle"], duration(record.cycle))) end
    if record.format then
        generated(c.tree:add(F["format.text"], record.format.text))
        local frame_bytes = record.format.frame_bytes
        generated(c.tree:add(F["stream.frames"], floor(c.payload_length / frame_bytes)))
        if c.payload_length % frame_bytes ~= 0 then
            c.tree:add_proto_expert_info(E.part_frame,
                string.format("%d bytes are not whole frames of %d", c.payload_length, frame_bytes))
        end
    end
end})

-- The number that an INFO_ANS stands for, 16384 is 1.0, and how it was said. All in 16 bits.
local function read_feedback(word, fill, wanted)
    if word >= 32768 then
        local low = word - 32768
        return 2, low >= 16384 and low - 32768 or low
    end
    if word ~= 0 then return 1, signed16(2 * (word - 8192)) end
    if wanted == 0 then return 0, 0 end
    return 3, signed16(towards_zero((fill - wanted) * 16384 / wanted))
end

-- Only feedback answers a STREAM_DATA that asks, and only once: a target may say more, at any time.
reply("INFO_ANS", {flags = ACCEPTED + PHASE + 0x0008, used = {8, 10, 12}, may_come_unasked = true,
needs_no_bit = true,
answers = function(c, asked) return not has(c.flags, 0x0008) and asked.responses == nil end,
analyse = function(c)
    local stream = streams[c.between]
    if not has(c.flags, 0x0008) or not stream then return end
    if stream.counter.next then
        c.record.resend_count = wrap16(stream.counter.next - c.word(10))
        stream.wanted_from, stream.wanted_in = c.word(10), c.number
    end
end, show = function(c)
    if has(c.flags, 0x0008) then
        show_plain(c, {{10, "info.resend_from"}, {12, "info.resend_last"}})
        local count = c.record.resend_count
        told(c, "again from %d on%s", c.word(10), count and string.format(": %d packets", count) or "")
        if count then generated(c.tree:add(F["info.resend_count"], c.tvb(10, 2), count)) end
        if count and count >= 32768 then
            c.tree:add_proto_expert_info(E.asks_ahead)
        else
            c.tree:add_proto_expert_info(E.asks_again)
        end
        return
    end
    show_plain(c, {{8, "info.feedback_word"}, {10, "info.fill"}, {12, "info.fill_target"}})
    local encoding, value = read_feedback(c.word(8), c.word(10), c.word(12))
    generated(c.tree:add(F["info.encoding"], c.tvb(8, 6), encoding))
    generated(c.tree:add(F["info.value"], c.tvb(8, 6), value))
    generated(c.tree:add(F.feedback, c.tvb(8, 6), value / 16384))
    local inverts = bits(c.flags, 7, 2) == 2
    generated(c.tree:add(F["info.wants_invert"], c.tvb(6, 2), inverts))
    told(c, "feedback %+.4f%s", value / 16384, inverts and ", inverted" or "")
end})

-- ---- the target's log ----

request("LOG_REQ", "LOG_ANS", {used = {8}, plain = {{8, "log.wanted"}}})
reply("LOG_ANS", {used = {8}, plain = {{8, "log.kind"}}, text = "log.text", may_come_unasked = true,
    answers = function(_, asked) return asked.responses == nil end})

-- ---- transfer ----

local function transfer_key(c, channel) return c.between .. " " .. channel end
local STASH_LIMIT = 4096  -- packets that came before their turn

request("TRANSFER_REQ", "TRANSFER_ANS", {used = {8}, plain = {{8, "transfer.channel"}}, analyse = function(c)
    if c.word(8) ~= 0 then
        transfers[transfer_key(c, c.word(8))] =
            {counter = Counter.new(0), rest = Crc.start, place = 0, stash = {}, stashed = 0}
    end
end, show = function(c)
    if c.word(8) == 0 then told(c, "how many channels?") else told(c, "channel %d", c.word(8) - 1) end
end})
reply("TRANSFER_ANS", {used = {8, 10, 12, 14}, echoes = {8}, analyse = function(c)
    local transfer = c.record.asked and c.record.asked ~= 0 and transfers[transfer_key(c, c.word(8))]
    if c.accepted and transfer then
        transfer.block_packets = c.word(12) + 1
    end
end, show = function(c)
    if is_count(c, c.word(12) == 0 and c.word(14) == 0) then
        show_plain(c, {{8, "transfer.channels"}, {10, "transfer.burst_limit"}})
        if c.word(12) ~= 0 or c.word(14) ~= 0 then
            c.tree:add_proto_expert_info(E.unused_not_zero)
        end
        told(c, "%d channels, bursts %s", c.word(8),
             c.word(10) == NO_LIMIT and "without limit" or "of " .. c.word(10) .. " bytes")
        return
    end
    show_plain(c, {{8, "transfer.channel"}, {10, "transfer.packet_bytes_1"}, {12, "transfer.block_packets_1"},
                   {14, "transfer.blocks_1"}})
    local packet, block, blocks = c.word(10) + 1, c.word(12) + 1, c.word(14) + 1
    local room = UInt64(packet) * UInt64(block) * UInt64(blocks)
    generated(c.tree:add(F["transfer.capacity"], c.tvb(10, 6), room))
    told(c, "packets of %d bytes, blocks of %d, %d blocks", packet, block, blocks)
end})

-- The CRC runs over the data in their order; what comes early waits.
local function take_data(transfer, place, raw)
    if place > transfer.place then
        if not transfer.stash[place] and transfer.stashed < STASH_LIMIT then
            transfer.stash[place] = raw
            transfer.stashed = transfer.stashed + 1
        end
        return
    end
    while place == transfer.place and raw do
        transfer.rest = Crc.add(transfer.rest, raw)
        transfer.place = place + 1
        place = transfer.place
        raw = transfer.stash[place]
        if raw then
            transfer.stash[place] = nil
            transfer.stashed = transfer.stashed - 1
        end
    end
end
request("TRANSFER_DATA", "TRANSFER_ACK", {used = {8, 10, 12, 14}, reads_payload = true, is_counted = true,
asks = function(c) return has(c.word(8), 0x8000) end,
analyse = function(c)
    local channel = c.word(8) % 32768
    local key = transfer_key(c, channel)
    local transfer = transfers[key]
    if not transfer then
        transfer = {counter = Counter.new(nil)}
        transfers[key] = transfer
    end
    c.record.count = transfer.counter:take(c.word(10), c.number)
    if has(c.word(8), 0x8000) then transfer.last = c.word(10) end
    local data = velmora.prefs.crc and Crc.exists and transfer.block_packets and c.whole_payload()
    if data then take_data(transfer, c.word(14) * transfer.block_packets + c.word(12), data) end
end, show = function(c)
    c.tree:add(F["transfer.channel"], c.tvb(8, 2), c.word(8) % 32768)
    c.tree:add(F["transfer.last"], c.tvb(8, 2), has(c.word(8), 0x8000))
    show_plain(c, {{10, "transfer.seq"}, {12, "transfer.index"}, {14, "transfer.block"}})
    told(c, "%d, block %d, place %d, %d bytes%s", c.word(10), c.word(14), c.word(12), c.payload_length,
         has(c.word(8), 0x8000) and ", last" or "")
    show_count(c, "transfer.", 10)
end})
reply("TRANSFER_ACK", {used = {8, 10}, plain = {{8, "transfer.channel"}, {10, "transfer.seq"}}, analyse = function(c)
    -- What it answers has the mark of the burst's last beside the channel.
    if c.accepted and c.record.asked and c.record.asked % 32768 ~= c.word(8) then c.record.wrong_echo = true end
    local transfer = transfers[transfer_key(c, c.word(8))]
    if c.accepted and transfer and transfer.last then
        c.record.burst_arrived = c.word(10) == transfer.last or c.word(10) == transfer.last + 1
    end
end, show = function(c)
    told(c, "reached %d", c.word(10))
    if c.record.burst_arrived == nil then return end
    generated(c.tree:add(F["transfer.burst_arrived"], c.tvb(10, 2), c.record.burst_arrived))
    if not c.record.burst_arrived then
        c.tree:add_proto_expert_info(E.burst_incomplete)
    end
end})
local END_FIELDS = {{8, "transfer.channel"}, {10, "transfer.crc"}, {12, "transfer.status"}}
request("TRANSFEREND_REQ", "TRANSFEREND_ANS", {used = {8, 10, 12}, plain = END_FIELDS, analyse = function(c)
    if c.word(12) ~= COMPLETE then return end  -- asks how the channel stands
    local transfer = transfers[transfer_key(c, c.word(8))]
    if velmora.prefs.crc and Crc.exists and transfer and transfer.block_packets and
        transfer.place % 65536 == transfer.counter.next then
        c.record.crc = Crc.value(transfer.rest)
    else
        c.record.crc_unchecked = true
    end
end, show = function(c)
    if c.word(12) ~= COMPLETE then told(c, "status?") else told(c, "CRC 0x%04x", c.word(10)) end
    if c.record.crc then
        local is_good = c.record.crc == c.word(10)
        generated(c.tree:add(F["transfer.crc_computed"], c.tvb(10, 2), c.record.crc))
        generated(c.tree:add(F["transfer.crc_good"], c.tvb(10, 2), is_good))
        if not is_good then
            c.tree:add_proto_expert_info(E.crc_wrong)
        end
    elseif c.record.crc_unchecked then
        c.tree:add_proto_expert_info(E.crc_unchecked)
    end
end})
reply("TRANSFEREND_ANS", {used = {8, 10, 12}, plain = END_FIELDS, echoes = {8, 10}, show = function(c)
    if not c.accepted then return end
    told(c, c.word(12) == COMPLETE and "complete" or "status " .. c.word(12))
    local was_end = not c.paired or c.paired.arg[12] == COMPLETE
    if c.word(12) ~= COMPLETE and was_end then c.tree:add_proto_expert_info(E.status_incomplete) end
end})

-- ---- settings and texts ----

local SIGNED_ITEM = 2
local function item_number(c, value) return c.record.item_type == SIGNED_ITEM and signed16(value) or value end

request("INFOA_REQ", "INFOA_ANS")
reply("INFOA_ANS", {text = "infoa.text"})
request("INFOB_REQ", "INFOB_ANS")
reply("INFOB_ANS", {text = "infob.text"})
request("VALUE_REQ", "VALUE_ANS", {used = {8}, plain = {{8, "value.value"}}})
reply("VALUE_ANS", {used = {8}, plain = {{8, "value.value"}}, echoes = {8}, always_echoes = true})
request("INFOINDEX_REQ", "INFOINDEX_ANS", {used = {8}, plain = {{8, "infoindex.index"}}, show = function(c)
    told(c, "%d", c.word(8))
end})
reply("INFOINDEX_ANS", {text = "infoindex.text"})
request("ITEM_REQ", "ITEM_ANS", {used = {8}, plain = {{8, "item.no"}}, show = function(c)
    if c.word(8) == 0 then told(c, "how many?") else told(c, "item %d", c.word(8)) end
end})
reply("ITEM_ANS", {used = {8, 10, 12, 14}, text = "item.label", echoes = {8}, analyse = function(c)
    local asked = c.record.asked
    if not c.accepted or asked == 0 or (not asked and c.word(10) == 0 and c.payload_length == 0) then return end
    c.record.item_type = c.word(10)
    item_types[c.source_end] = item_types[c.source_end] or {}
    item_types[c.source_end][c.word(8)] = c.word(10)
end, show = function(c)
    if is_count(c, c.word(10) == 0 and not c.payload) then
        show_plain(c, {{8, "item.count"}})
        if c.word(10) ~= 0 or c.word(12) ~= 0 or c.word(14) ~= 0 then
            c.tree:add_proto_expert_info(E.unused_not_zero)
        end
        told(c, "%d items", c.word(8))
        return
    end
    show_plain(c, {{8, "item.no"}, {10, "item.type"}})
    c.record.item_type = c.word(10)
    c.tree:add(F["item.lower"], c.tvb(12, 2), item_number(c, c.word(12)))
    c.tree:add(F["item.upper"], c.tvb(14, 2), item_number(c, c.word(14)))
    told(c, "item %d", c.word(8))
end})
local function remember_type(c, end_key)
    local types = item_types[end_key]
    c.record.item_type = types and types[c.word(8)]
end
local WRITE = 1
local MODES = {[0] = "read", [1] = "write", [2] = "read the alternative", [3] = "label of"}
request("ITEMVALUE_REQ", "ITEMVALUE_ANS", {used = {8, 10, 12}, plain = {{8, "item.no"}, {10, "item.mode"}},
reads_payload = function(c) return c.word(10) == WRITE end, analyse = function(c)
    remember_type(c, c.target)
end, show = function(c)
    c.tree:add(F["item.value"], c.tvb(12, 2), item_number(c, c.word(12)))
    if c.word(10) == WRITE then show_text(c, "item.text") end
    if c.word(8) == 0 and c.word(10) == 1 then told(c, "into force, and keep")
    elseif c.word(8) == 0 and c.word(10) == 2 then told(c, "into force")
    else told(c, "%s item %d", MODES[c.word(10)] or "mode " .. c.word(10), c.word(8)) end
end})
reply("ITEMVALUE_ANS", {used = {8, 10, 14}, plain = {{8, "item.no"}}, text = "item.text", echoes = {8},
always_echoes = true, analyse = function(c)
    remember_type(c, c.source_end)
end, show = function(c)
    c.tree:add(F["item.current"], c.tvb(10, 2), item_number(c, c.word(10)))
    c.tree:add(F["item.second"], c.tvb(14, 2), item_number(c, c.word(14)))
    told(c, "item %d is %d", c.word(8), item_number(c, c.word(10)))
end})

for _, m in pairs(messages) do
    m.is_used = {}
    for _, at in ipairs(m.used or {}) do m.is_used[at] = true end
    m.has_unused = {}
    for at = 8, 14, 2 do
        if not m.is_used[at] then table.insert(m.has_unused, at) end
    end
end

-- ---- requests and answers ----

local function remember_request(c)
    local record, m = c.record, c.message
    -- A target that sends a request back answers it with nothing.
    local asked_back = open[c.target .. ">" .. c.host]
    asked_back = asked_back and asked_back[m.answer]
    if asked_back and asked_back.id == c.id and not asked_back.responses then
        record.echo_of = asked_back.number
        return
    end
    if m.asks and not m.asks(c) then return end
    local to = c.is_to_everybody and c.host .. ">*|" .. c.pinfo.dst_port or c.between
    open[to] = open[to] or {}
    local before = open[to][m.answer]
    record.awaits, record.tries, record.arg = true, 1, {}
    record.number, record.time, record.id = c.number, c.time, c.id
    for at = 8, 14, 2 do record.arg[at] = c.word(at) end
    if not m.is_counted then record.contents = c.tvb:raw(4) end
    if before and before.id == c.id and not before.responses and record.contents and
        before.contents == record.contents and not c.is_to_everybody then
        record.repeat_of = before.repeat_of or before.number
        record.tries = before.tries + 1
        before.was_repeated = true
    end
    open[to][m.answer] = record
end

local RESPONSES_SHOWN = 1000  -- of one request

local function remember_answer(c)
    local record, m = c.record, c.message
    local single = open[c.between] and open[c.between][c.id]
    local port = c.target:match("|(%d+)$")
    local all = open[c.host .. ">*|" .. port]
    all = all and all[c.id]
    local asked = single
    if all and (not single or all.number > single.number) then asked = all end
    if asked and m.answers and not m.answers(c, asked) then asked = nil end
    if not asked then
        record.is_unasked = true
        return
    end
    record.request, record.time_taken = asked.number, c.time - asked.time
    record.asked = asked.arg and asked.arg[8]
    -- Many answer a question to everybody, each once.
    asked.responses, asked.first_of = asked.responses or {}, asked.first_of or {}
    record.answered_before = asked.first_of[c.source_end]
    asked.first_of[c.source_end] = record.answered_before or c.number
    if #asked.responses < RESPONSES_SHOWN then table.insert(asked.responses, c.number) end
    for _, at in ipairs(m.echoes or {}) do
        local wanted = asked.arg and asked.arg[at]
        if c.accepted and wanted and (wanted ~= 0 or at ~= 8 or m.always_echoes) and wanted ~= c.word(at) then
            record.wrong_echo = true
        end
    end
end

-- The first look at a sound datagram.
local function analyse(c)
    local m = c.message
    if m.answer then remember_request(c) elseif m.is_answer then remember_answer(c) end
    if m.analyse and not c.record.echo_of then m.analyse(c) end
end

local function show_pairing(c)
    local record, tree = c.record, c.tree
    if record.request then
        generated(tree:add(F.request_in, record.request))
        generated(tree:add(F.response_time, duration(record.time_taken)))
    end
    for _, response in ipairs(record.responses or {}) do generated(tree:add(F.response_in, response)) end
    if record.repeat_of then
        generated(tree:add(F.repeat_of, record.repeat_of))
        generated(tree:add(F["try"], record.tries))
        tree:add_proto_expert_info(E.repeated)
        told(c, "[try %d]", record.tries)
    end
    if record.echo_of then
        tree:add_proto_expert_info(E.echo, string.format("The request of frame %d came back", record.echo_of))
    end
    if record.answered_before then
        tree:add_proto_expert_info(E.answered_again,
            string.format("Frame %d was answered by frame %d before", record.request, record.answered_before))
    end
    if record.wrong_echo then tree:add_proto_expert_info(E.wrong_echo) end
    if c.id == IDS.DSICONNECT_ANS and record.is_unasked then
        tree:add_proto_expert_info(E.target_ends)
    elseif record.is_unasked and not c.message.may_come_unasked then
        tree:add_proto_expert_info(E.unasked)
    end
    -- Only when the whole capture has been looked at can an answer be missed.
    if c.pinfo.visited and record.awaits and not record.responses and not record.was_repeated then
        tree:add_proto_expert_info(E.no_answer)
    end
    if c.message.is_answer and not c.accepted and not c.message.needs_no_bit then
        tree:add_proto_expert_info(E.refused)
        told(c, "refused")
    end
end

-- ---- one datagram ----

local function is_zero(raw) return not raw:find("[^\0]") end

local function show_header(tvb, tree)
    tree:add_le(F.magic, tvb(0, 2))
    local size = tvb(2, 2):le_uint()
    local item = tree:add_le(F.size_word, tvb(2, 2))
    item:add(F.length, tvb(2, 2), size - size % 8)
    item:add(F.filler_count, tvb(2, 2), size % 8)
    tree:add_le(F.id, tvb(4, 2))
    return tree:add_le(F.flags, tvb(6, 2))
end

local function show_flags(c, item)
    local m = c.message
    if m.is_answer then item:add_le(F["flags.accepted"], c.tvb(6, 2)) end
    for _, row in ipairs({{0x08, "resend"}, {0x20, "asks_info"}, {0x40, "last_of_burst"}}) do
        if has(m.flags, row[1]) then item:add_le(F["flags." .. row[2]], c.tvb(6, 2)) end
    end
    if has(m.flags, 0x100) then item:add_le(F["flags.phase"], c.tvb(6, 2)) end
    for power = 0, 15 do
        local one = floor(2 ^ power)
        if has(c.flags, one) and not has(m.flags, one) then
            item:add_proto_expert_info(E.unknown_flags)
            break
        end
    end
end

-- What stands behind the payload: filler by the size word, and what is longer than it says.
local function show_rest(c, captured, reported)
    local tvb, tree = c.tvb, c.tree
    local filler_at = HEADER + c.payload_length
    local filler = math.min(c.filler_count, math.max(captured - filler_at, 0))
    if c.length >= HEADER + c.filler_count and filler > 0 then
        local item = tree:add(F.filler, tvb(filler_at, filler))
        if not is_zero(tvb:raw(filler_at, filler)) then item:add_proto_expert_info(E.filler_not_zero) end
    end
    local ends_at = math.max(c.length, HEADER)
    if reported <= ends_at then return end
    local item = tree
    local is_long_form = false
    if captured > ends_at then
        item = tree:add(F.surplus, tvb(ends_at, captured - ends_at))
        is_long_form = c.message and c.message.is_counted and reported - ends_at == 8 and
            is_zero(tvb:raw(ends_at, captured - ends_at))
    end
    if is_long_form then
        item:add_proto_expert_info(E.long_form)
    else
        item:add_proto_expert_info(E.surplus, string.format("%d bytes more than it claims", reported - ends_at))
    end
end

local function dissect(tvb, pinfo, root)
    local captured, reported = tvb:len(), tvb:reported_len()
    pinfo.cols.protocol = "VELMORA"
    local tree = root:add(velmora, tvb())
    local function malformed(key, words)
        tree:append_text(", " .. words)
        tree:add_proto_expert_info(E[key], words)
        pinfo.cols.info = words
    end

    if reported < HEADER then
        if captured > 0 then tree:add(F.data, tvb()) end
        return malformed("too_short", string.format("Shorter than a header: %d bytes", reported))
    end
    if captured < HEADER then
        if captured > 0 then tree:add(F.data, tvb()) end
        tree:add_proto_expert_info(E.cut_capture)
        pinfo.cols.info = "Cut by the capture"
        return
    end
    local flags_item = show_header(tvb, tree)
    local size = tvb(2, 2):le_uint()
    local length, filler_count = size - size % 8, size % 8
    if tvb(0, 2):le_uint() ~= MAGIC then
        if captured > HEADER then tree:add(F.data, tvb(HEADER)) end
        return malformed("bad_magic", string.format("Magic is %d, not %d", tvb(0, 2):le_uint(), MAGIC))
    end
    if length > reported then
        if captured > HEADER then tree:add(F.data, tvb(HEADER)) end
        return malformed("bad_length", string.format("Claims %d bytes, and %d came", length, reported))
    end

    local id = tvb(4, 2):le_uint()
    local c = {
        tvb = tvb, pinfo = pinfo, tree = tree, number = pinfo.number, time = pinfo.rel_ts,
        id = id, flags = tvb(6, 2):le_uint(), length = length, filler_count = filler_count,
        message = messages[id], info = {},
        payload_length = math.max(length - filler_count - HEADER, 0),
    }
    c.accepted = has(c.flags, ACCEPTED)
    c.name = c.message and c.message.name or string.format("unknown message %d", id)
    function c.word(at) return tvb(at, 2):le_uint() end
    local held = math.min(c.payload_length, captured - HEADER)
    if held > 0 then c.payload = tvb(HEADER, held) end
    -- Nothing where there is none, or where the capture holds a part of it.
    function c.whole_payload()
        if held > 0 and held == c.payload_length then return tvb:raw(HEADER, held) end
    end

    tree:append_text(", " .. c.name)
    if length < HEADER + filler_count then tree:add_proto_expert_info(E.small_length) end
    local arg = tree:add(F.arg, tvb(8, 8))
    if captured < length then tree:add_proto_expert_info(E.cut_capture) end

    if not c.message then
        tree:add_proto_expert_info(E.unknown_id, string.format("Unknown message %d", id))
        c.record = {}
    elseif pinfo.in_error_pkt then
        c.record = {}  -- quoted in somebody's complaint: it counts where it was sent
        show_flags(c, flags_item)
    else
        local source, target = address_key(pinfo.src), address_key(pinfo.dst)
        c.source = source
        c.source_end = source .. "|" .. pinfo.src_port
        c.host, c.target = c.source_end, target .. "|" .. pinfo.dst_port
        c.is_to_everybody = pinfo.dst == EVERYBODY
        if c.message.is_answer or id == IDS.NOTIFY then c.host, c.target = c.target, c.host end
        c.between = c.host .. ">" .. c.target
        function c.learn(address, port)
            local key = address .. "|" .. port
            learned[key] = learned[key] or c.number
            learned.by_port[port] = true
        end
        show_flags(c, flags_item)
        if not pinfo.visited or not frames[c.number] then
            c.record = {}
            frames[c.number] = c.record
            analyse(c)
        end
        c.record = frames[c.number]
    end

    local m = c.message
    c.paired = c.record.request and frames[c.record.request]
    if m then
        for _, at in ipairs(m.has_unused) do
            if c.word(at) ~= 0 then
                arg:add_proto_expert_info(E.unused_not_zero)
                break
            end
        end
        if m.plain then show_plain(c, m.plain) end
        if m.show then m.show(c) end
        if m.text then
            show_text(c, m.text)
            if c.payload then told(c, "%s", quoted(c.payload)) end
        end
    end
    generated(tree:add(F.payload_length, tvb(2, 2), c.payload_length))
    if c.payload then
        local item = tree:add(F.payload, c.payload)
        local reads = m and (m.text or m.reads_payload)
        if type(reads) == "function" then reads = reads(c) end
        if m and not reads then item:add_proto_expert_info(E.unread_payload) end
    end
    show_rest(c, captured, reported)
    if m and not pinfo.in_error_pkt then show_pairing(c) end
    pinfo.cols.info = c.name .. (#c.info > 0 and " " or "") .. table.concat(c.info, " ")
end

function velmora.dissector(tvb, pinfo, tree)
    -- Whatever this file may have overlooked becomes an expert info of its own.
    local done, problem = pcall(dissect, tvb, pinfo, tree)
    if not done then
        tree:add(velmora, tvb()):add_proto_expert_info(E.internal, "A fault of this dissector: " .. tostring(problem))
    end
    return tvb:len()
end

-- ---- where datagrams are found ----

-- Whether these are bytes that only a datagram of ours can be. Stricter than any reader: what two programs
-- in the world happen to send alike must not be taken away from the other one.
local function looks_sound(tvb)
    local captured, reported = tvb:len(), tvb:reported_len()
    if captured < HEADER or tvb(0, 2):le_uint() ~= MAGIC then return false end
    local m = messages[tvb(4, 2):le_uint()]
    local size, flags = tvb(2, 2):le_uint(), tvb(6, 2):le_uint()
    local length, filler = size - size % 8, size % 8
    if not m or length < HEADER + filler then return false end
    if reported ~= length and reported ~= length + 8 then return false end
    for power = 0, 15 do
        local one = floor(2 ^ power)
        if has(flags, one) and not has(m.flags, one) then return false end
    end
    for _, at in ipairs(m.has_unused) do
        if tvb(at, 2):le_uint() ~= 0 then return false end
    end
    local filler_at = length - filler
    return captured < length or filler == 0 or is_zero(tvb:raw(filler_at, filler))
end

local function was_learned(pinfo)
    if not learned.by_port[pinfo.src_port] and not learned.by_port[pinfo.dst_port] then return false end
    local source, target = address_key(pinfo.src), address_key(pinfo.dst)
    for _, key in ipairs({source .. "|" .. pinfo.src_port, target .. "|" .. pinfo.dst_port}) do
        if learned[key] and learned[key] <= pinfo.number then return true end
    end
    return false
end

-- UDP datagrams that no port claims: at a port that a target has named anything is taken, and marked where it
-- is bad; elsewhere only what looks sound. Either way the two stay ours from then on.
local function try(tvb, pinfo, tree)
    if pinfo.in_error_pkt then return false end
    if not was_learned(pinfo) and not (velmora.prefs.guess and looks_sound(tvb)) then return false end
    if not pinfo.visited then pinfo.conversation = velmora end
    velmora.dissector(tvb, pinfo, tree)
    return true
end
velmora:register_heuristic("udp", function(tvb, pinfo, tree)
    local done, taken = pcall(try, tvb, pinfo, tree)
    return done and taken
end)

local ports = DissectorTable.get("udp.port")
local added = CONTROL_PORTS
ports:add(added, velmora)
function velmora.prefs_changed()
    if velmora.prefs.ports == added then return end
    if added ~= "" then ports:remove(added, velmora) end
    added = velmora.prefs.ports
    if added ~= "" then ports:add(added, velmora) end
end

-- The driver's own log goes to this computer as syslog, at a port of its own.
pcall(function() ports:add(HOST_LOG_PORT, Dissector.get("syslog")) end)

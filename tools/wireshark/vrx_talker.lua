-- Wireshark dissector of the protocol between a talker and its server (docs/protocol.md).
--
-- Copy it into Wireshark's personal Lua plugin folder (Help, About, Folders), usually ~/.local/lib/wireshark/plugins,
-- or name it for one run:
--
--   tshark -X lua_script:vrx_talker.lua -r run.pcap -O vrx
--
-- Connections that begin with "connect,HOST,PORT" are found by themselves. For others, or for a capture that begins
-- later, name the server's port: -d tcp.port==7000,vrx, or Decode As, or the preference "Server port".

local vrx = Proto("vrx", "VRX Talker")

local kMarker = 0x07FF0003
local kMarkerBytes = "\x03\x00\xFF\x07"
local kObjectCommand = 0x3A
local kHeaderBytes = 16  -- of every packet: marker, length, two more words
local kSmallestCommand = 24  -- the header, the wanted words, one word of text
local kFiguresEnd = 28  -- of a reply: status and two cycle words behind the header
local kLongestLine = 65536
local kCycleUnit = 256  -- cycle words have 8 fractional bits

vrx.prefs.port = Pref.uint("Server port", 0, "TCP port of the server; 0: none")
vrx.prefs.largest = Pref.uint("Largest packet", 16777216, "A length word above so many bytes is taken for damage")

local commands = { [kObjectCommand] = "Write and read objects" }

local f = {
    line = ProtoField.string("vrx.line", "Line"),
    marker = ProtoField.uint32("vrx.marker", "Marker", base.HEX),
    length = ProtoField.uint32("vrx.length", "Length in bytes"),
    arguments = ProtoField.uint32("vrx.argument_words", "Words from offset 16 up to the text"),
    command = ProtoField.uint32("vrx.command", "Command", base.HEX, commands),
    wanted = ProtoField.uint32("vrx.reply_words", "Words wanted from the reply's offset 16 on"),
    words = ProtoField.bytes("vrx.words", "Words"),
    word = ProtoField.uint32("vrx.word", "Word", base.HEX),
    path = ProtoField.string("vrx.path", "Object path"),
    layout = ProtoField.string("vrx.layout", "Layout"),
    input = ProtoField.string("vrx.input", "Input"),
    output = ProtoField.string("vrx.output", "Output"),
    unread = ProtoField.bytes("vrx.unread", "Not read by the client"),
    status = ProtoField.int32("vrx.status", "Status"),
    average = ProtoField.int32("vrx.average_cycles", "Average cycles"),
    pump = ProtoField.int32("vrx.pump_cycles", "Pump cycles"),
    pinInput = ProtoField.uint32("vrx.pin.input", "Input pin", base.HEX),
    pinOutput = ProtoField.uint32("vrx.pin.output", "Output pin", base.HEX),
    pinFirst = ProtoField.uint32("vrx.pin.first", "First value", base.DEC, nil, 0x07FFFC00),
    pinSecond = ProtoField.uint32("vrx.pin.second", "Second value", base.DEC, nil, 0x000003FF),
    pinThird = ProtoField.uint32("vrx.pin.third", "Third value", base.DEC, nil, 0x08000000),
    replyIn = ProtoField.framenum("vrx.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    requestIn = ProtoField.framenum("vrx.request_in", "Request in", base.NONE, frametype.REQUEST),
    time = ProtoField.relative_time("vrx.time", "Time since the request"),
}
vrx.fields = f

local e = {
    length = ProtoExpert.new("vrx.length.bad", "Length word", expert.group.MALFORMED, expert.severity.ERROR),
    layout = ProtoExpert.new("vrx.words.bad", "Word counts", expert.group.MALFORMED, expert.severity.ERROR),
    bytes = ProtoExpert.new("vrx.bytes.bad", "Neither a packet nor a line", expert.group.MALFORMED,
                            expert.severity.ERROR),
    short = ProtoExpert.new("vrx.words.short", "Fewer words than were wanted", expert.group.PROTOCOL,
                            expert.severity.WARN),
    pieces = ProtoExpert.new("vrx.pieces", "Came in several segments: the client takes what one receive delivers",
                             expert.group.SEQUENCE, expert.severity.WARN),
    refused = ProtoExpert.new("vrx.refused", "A line answers a packet", expert.group.RESPONSE_CODE,
                              expert.severity.WARN),
}
vrx.experts = { e.length, e.layout, e.bytes, e.short, e.pieces, e.refused }

local tcpStream = Field.new("tcp.stream")

-- What is known of each connection and message; filled while a capture is read for the first time.
local streams = {}  -- by number: the client's port, and the exchanges that wait for their reply, from first to last
local exchanges = {}  -- by place of a message: { request, reply, details }, the same for both messages of a pair

function vrx.init()
    streams = {}
    exchanges = {}
end

local function StreamOf(pinfo, serverPort)
    local number = tcpStream().value
    local stream = streams[number]
    if not stream then
        -- The client speaks first.
        local client = pinfo.src_port
        if client == serverPort then client = pinfo.dst_port end
        stream = { clientPort = client, waiting = {}, first = 1, last = 0 }
        streams[number] = stream
    end
    return stream
end

-- The exchange that a message belongs to. Requests wait in a row; each reply goes to the one that waits longest.
local function ExchangeOf(pinfo, stream, place, isRequest, details)
    local exchange = exchanges[place]
    if exchange then return exchange end
    local message = { frame = pinfo.number, time = pinfo.rel_ts }
    if isRequest then
        exchange = { request = message, details = details }
        stream.last = stream.last + 1
        stream.waiting[stream.last] = exchange
    else
        exchange = stream.waiting[stream.first] or {}
        if exchange.request then
            stream.waiting[stream.first] = nil
            stream.first = stream.first + 1
        end
        exchange.reply = message
    end
    exchanges[place] = exchange
    return exchange
end

local function AddLinks(tree, exchange, isRequest)
    if isRequest then
        if exchange.reply then tree:add(f.replyIn, exchange.reply.frame):set_generated() end
    elseif exchange.request then
        tree:add(f.requestIn, exchange.request.frame):set_generated()
        local seconds = exchange.reply.time - exchange.request.time
        local whole = math.floor(seconds)
        tree:add(f.time, NSTime.new(whole, math.floor((seconds - whole) * 1e9 + 0.5))):set_generated()
    end
end

local function AddWords(tree, range)
    if range:len() == 0 then return end
    local words = tree:add(f.words, range)
    words:set_text(string.format("Words: %d", range:len() / 4))
    for at = 0, range:len() - 4, 4 do
        local word = range(at, 4)
        words:add_le(f.word, word):append_text(string.format(" (%d, %g)", word:le_int(), word:le_float()))
    end
end

local function AddPath(tree, range)
    local text = range:raw():match("^[^\0]*")
    local item = tree:add(f.path, range, text)
    if #text == range:len() then item:add_proto_expert_info(e.layout, "Not ended by a zero byte") end
    local layout, input, output = text:match("^([^,]*),([^,]*),([^,]*)$")
    if not layout then return text end
    item:add(f.layout, range(0, #layout))
    item:add(f.input, range(#layout + 1, #input))
    item:add(f.output, range(#layout + #input + 2, #output))
    return text
end

local function AddCycles(tree, field, name, word)
    local item = tree:add_le(field, word)
    item:set_text(string.format("%s: %.10g (word %d)", name, word:le_int() / kCycleUnit, word:le_int()))
end

local function AddPin(tree, field, word)
    local pin = tree:add_le(field, word)
    pin:add_le(f.pinFirst, word)
    pin:add_le(f.pinSecond, word)
    pin:add_le(f.pinThird, word)
end

local function IsInfo(path)
    return path:find("%.info1,[^,]*%.info1$") ~= nil
end

local function DissectCommand(packet, pinfo, tree)
    local bytes = packet:len()
    local argumentWords = packet(8, 4):le_uint()
    tree:add_le(f.marker, packet(0, 4))
    tree:add_le(f.length, packet(4, 4))
    local arguments = tree:add_le(f.arguments, packet(8, 4))
    tree:add_le(f.command, packet(12, 4))
    tree:add_le(f.wanted, packet(16, 4))
    local textAt = kHeaderBytes + 4 * argumentWords
    local details = { wanted = packet(16, 4):le_uint(), info = false }
    if argumentWords == 0 or textAt >= bytes then
        arguments:add_proto_expert_info(e.layout, "No text within the packet")
        pinfo.cols.info:append("Command, damaged")
        return details
    end
    AddWords(tree, packet(20, textAt - 20))
    local path = AddPath(tree, packet(textAt))
    details.info = IsInfo(path)
    pinfo.cols.info:append(string.format("Command %s, %d words out, %d back", path, argumentWords - 1,
                                         math.max(0, details.wanted - 3)))
    return details
end

local function DissectReply(packet, pinfo, tree, details)
    tree:add_le(f.marker, packet(0, 4))
    local length = tree:add_le(f.length, packet(4, 4))
    tree:add(f.unread, packet(8, 8))
    tree:add_le(f.status, packet(16, 4))
    AddCycles(tree, f.average, "Average cycles", packet(20, 4))
    AddCycles(tree, f.pump, "Pump cycles", packet(24, 4))
    local words = packet:len() > kFiguresEnd and packet(kFiguresEnd) or nil
    local count = words and math.floor(words:len() / 4) or 0
    pinfo.cols.info:append(string.format("Reply, status %d, %d words", packet(16, 4):le_int(), count))
    if details and count + 3 < details.wanted then
        length:add_proto_expert_info(e.short, string.format("%d words of the %d wanted: the client keeps old ones",
                                                            count + 3, details.wanted))
    end
    if not words then return end
    if details and details.info and count >= 2 then
        AddPin(tree, f.pinInput, words(0, 4))
        AddPin(tree, f.pinOutput, words(4, 4))
    else
        AddWords(tree, words(0, 4 * count))
    end
end

local function DissectLine(range, pinfo, tree, isRequest, details)
    local text = range(0, range:len() - 1):string()
    local line = tree:add(f.line, range, text)
    pinfo.cols.info:append((isRequest and "Line: " or "Reply line: ") .. text)
    if details and details.wanted then line:add_proto_expert_info(e.refused) end
end

-- Where the message at `offset` ends: its length and kind ("packet", "line" or "damage"), or nil and how many bytes
-- are missing, if that is known.
local function Measure(tvb, offset, smallest)
    local left = tvb:len() - offset
    local head = tvb:raw(offset, math.min(left, 4))
    if head == kMarkerBytes:sub(1, #head) then
        if left < 8 then return nil end
        local length = tvb(offset + 4, 4):le_uint()
        if length < smallest or length > vrx.prefs.largest then return left, "damage" end
        if length > left then return nil, length - left end
        return length, "packet"
    end
    local text = tvb:raw(offset, left)
    local feed = text:find("\n", 1, true)
    local line = text:sub(1, (feed or left + 1) - 1)
    if line:find("[\0-\8\11\12\14-\31]") or #line > kLongestLine then return left, "damage" end
    if not feed then return nil end
    return feed, "line"
end

local function DissectDamage(range, pinfo, tree, what)
    pinfo.cols.info:append(what .. ", damaged")
    if range:len() < 8 or range(0, 4):le_uint() ~= kMarker then
        tree:add_proto_expert_info(e.bytes)
        return
    end
    tree:add_le(f.marker, range(0, 4))
    tree:add_le(f.length, range(4, 4)):add_proto_expert_info(e.length, "No packet has such a length")
end

local function DissectRequest(range, kind, pinfo, tree)
    if kind == "packet" then return DissectCommand(range, pinfo, tree) end
    if kind == "line" then
        DissectLine(range, pinfo, tree, true)
    else
        DissectDamage(range, pinfo, tree, "Request")
    end
    return {}
end

local function DissectAnswer(range, kind, pinfo, tree, details, collected)
    if kind == "packet" then
        DissectReply(range, pinfo, tree, details)
        if collected then tree:add_proto_expert_info(e.pieces) end
    elseif kind == "line" then
        DissectLine(range, pinfo, tree, false, details)
    else
        DissectDamage(range, pinfo, tree, "Reply")
    end
end

local function DissectMessage(tvb, range, kind, pinfo, tree, stream, isRequest)
    -- Collected bytes are a source of their own, in the same frame as the segment that completed them.
    local place = pinfo.number .. ":" .. tvb:offset() + range:offset()
    local collected = tvb:offset() == 0
    local item = tree:add(vrx, range, "VRX Talker, " .. (isRequest and "Request" or "Reply"))
    if tostring(pinfo.cols.info) ~= "" then pinfo.cols.info:append("; ") end
    local exchange
    if isRequest then
        exchange = ExchangeOf(pinfo, stream, place, true, DissectRequest(range, kind, pinfo, item))
    else
        exchange = ExchangeOf(pinfo, stream, place, false)
        DissectAnswer(range, kind, pinfo, item, exchange.details, collected)
    end
    AddLinks(item, exchange, isRequest)
end

local function Dissect(tvb, pinfo, tree, serverPort)
    local stream = StreamOf(pinfo, serverPort)
    local isRequest = pinfo.src_port == stream.clientPort
    pinfo.cols.protocol = "VRX"
    pinfo.cols.info = ""
    local offset = 0
    while offset < tvb:len() do
        local length, kind = Measure(tvb, offset, isRequest and kSmallestCommand or kFiguresEnd)
        if not length then
            pinfo.desegment_offset = offset
            pinfo.desegment_len = kind or DESEGMENT_ONE_MORE_SEGMENT
            return tvb:len()
        end
        DissectMessage(tvb, tvb(offset, length), kind, pinfo, tree, stream, isRequest)
        offset = offset + length
    end
    return offset
end

function vrx.dissector(tvb, pinfo, tree)
    return Dissect(tvb, pinfo, tree, pinfo.match_uint)
end

vrx:register_heuristic("tcp", function(tvb, pinfo, tree)
    if not tvb:raw(0, math.min(tvb:len(), 512)):find("^connect,[^,\n]*,%-?%d+\n") then return false end
    pinfo.conversation = vrx
    Dissect(tvb, pinfo, tree, nil)
    return true
end)

local tcpPorts = DissectorTable.get("tcp.port")
local namedPort = 0

function vrx.prefs_changed()
    if namedPort == vrx.prefs.port then return end
    if namedPort ~= 0 then tcpPorts:remove(namedPort, vrx) end
    namedPort = vrx.prefs.port
    if namedPort ~= 0 then tcpPorts:add(namedPort, vrx) end
end

tcpPorts:add_for_decode_as(vrx)

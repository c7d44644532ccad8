#include "Plan.h"

#include "Env.h"
#include "support/WireProtocol.h"

namespace zelfuzz::serverframes {

namespace {

namespace wire = Zel::wire;

// What a server must accept and how it words a refusal are what this
// target checks, so they are written here again rather than taken from the
// server's code or support/WireProtocol.h: the largest command, the
// kinds (in readPlan: the two requests and the part of a long command) and
// the rendering of a bad header. A mistake shared
// with the server would otherwise pass unseen. The shared header only
// writes the lengths of the frames sent.
constexpr size_t kMaxCommand = 4089;
constexpr char kFillers[] = {' ', '\n', '\t', 'x', '\0', '#', ')', '\xff'};
constexpr size_t kChunks[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 13, 64, 100, 1000, 4095, 4096, 8192};

// The server's rendering of a header byte in its reason (the oracle's own).
std::string printable(unsigned char c) {
    if (c >= 0x20 && c < 0x7f && c != '\\' && c != '\'') return std::string(1, char(c));
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", c);
    return text;
}

} // namespace

Plan readPlan(Reader& in) {
    Plan p;
    uint8_t b0 = in.byte(), b1 = in.byte();
    p.delivery = Delivery(b0 & 3);
    p.ending = Ending((b0 >> 2) & 3);
    p.chunk = kChunks[b1 >> 4];
    size_t frames = b1 & 15;
    if (frames == 15) frames += in.byte();
    std::string stream;
    switch ((b0 >> 4) & 3) {
    case 0: stream = "CR"; break;
    case 1: stream = "TR"; break;
    case 2: stream = "?1"; break;
    default: stream += char(in.byte()); stream += char(in.byte()); break;
    }
    int cut = b0 & 0x40 ? in.byte() : -1;

    struct Placed {
        size_t begin, headerEnd, end;
        bool valid, lockStep;
        Command command;
        std::string reason;
    };
    std::vector<Placed> placed;
    for (size_t i = 0; i < frames; ++i) {
        uint8_t f = in.byte();
        unsigned char k0 = '?', k1;
        switch (f & 7) {
        case 0: case 1: case 2: k1 = '1'; break;
        case 3: case 4: case 5: k1 = '2'; break;
        case 6: k0 = in.byte(); k1 = in.byte(); break;
        default: k1 = in.byte(); break;
        }
        // A watch ('6') ends its connection and a stacks request ('7') answers
        // what the threads do at that moment, which this oracle cannot
        // foretell; test_server_pyserver (watches) and test_zelc_operator
        // (stacks) cover them. Such a header goes as '?9', bad input, instead.
        if (k0 == '?' && (k1 == '6' || k1 == '7')) k1 = '9';
        unsigned lengthMode = (f >> 3) & 3;
        uint32_t n = 0;
        if (lengthMode == 2) {
            n = uint32_t(in.byte()) << 8;
            n = (n | in.byte()) % 4096;
        } else if (lengthMode == 3) {
            for (int b = 0; b < 4; ++b) n = n << 8 | in.byte();
        }
        std::string text;
        for (unsigned pieces = 1 + ((f >> 5) & 3) % 3; pieces > 0; --pieces) {
            text += kCommands[in.byte() % std::size(kCommands)];
        }
        if (lengthMode < 2) {
            n = uint32_t(text.size());
        } else {
            char filler = kFillers[in.byte() % std::size(kFillers)];
            if (n <= kMaxCommand) text.resize(n, filler);
        }
        // "?1" "?2", the console's "?3" "?4" "?5", and "?8" (those met through a kind byte that follows).
        bool valid = k0 == '?' && ((k1 >= '1' && k1 <= '5') || k1 == '8') && n <= kMaxCommand;
        Placed pl{stream.size(), stream.size() + 6, 0, valid, bool(f & 0x80), Command{char(k1), text}, {}};
        if (!valid) pl.reason = "kind '" + printable(k0) + printable(k1) + "', length " + std::to_string(n);
        stream += char(k0);
        stream += char(k1);
        char length[wire::kLengthSize];
        wire::writeLength(n, length);
        stream.append(length, sizeof length);
        // A valid header is followed by exactly its n bytes of command;
        // what follows a bad one the server must never read as a command.
        stream += text;
        pl.end = stream.size();
        placed.push_back(std::move(pl));
    }
    size_t keep = cut < 0 ? stream.size() : (stream.size() + 1) * size_t(cut) / 256;
    stream.resize(keep);
    p.stream = std::move(stream);

    // What the server makes of it: the greeting, then frames up to the
    // first bad header or the cut.
    p.greeted = keep >= 2;
    std::string longCommand;
    if (p.greeted) {
        for (Placed& pl : placed) {
            if (pl.lockStep && p.reads()) p.gates.emplace_back(pl.begin, p.replies());
            if (pl.headerEnd > keep) break;
            if (!pl.valid) {
                p.bad = pl.reason;
                break;
            }
            if (pl.end > keep) break;
            // A part ('8') gets no reply: the next request runs it and its own text as one command.
            longCommand += pl.command.text;
            if (pl.command.kind == '8') continue;
            p.commands.push_back(Command{pl.command.kind, std::move(longCommand)});
            longCommand.clear();
        }
    }
    return p;
}

void computeExpected(Plan& p) {
    if (!p.reads() || p.commands.empty()) return;
    PyRef ns(PyDict_Copy(PyDict_GetItemString(env.glue, "seed")));
    if (!ns) pythonFinding("cannot copy the seed namespace");
    for (Command const& c : p.commands) {
        char kind[2] = {c.kind, 0};
        PyRef r(PyObject_CallFunction(glueFunction("expect"), const_cast<char*>("Oss#"), ns.get(), kind, c.text.data(),
                                    Py_ssize_t(c.text.size())));
        char const *status, *text;
        Py_ssize_t textSize;
        if (!r || !PyArg_ParseTuple(r.get(), "ss#", &status, &text, &textSize)) {
            pythonFinding("cannot tell what \"" + shown(c.text) + "\" should answer");
        }
        p.expected.push_back({status, std::string(text, size_t(textSize))});
    }
}

} // namespace zelfuzz::serverframes

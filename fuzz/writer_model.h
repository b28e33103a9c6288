// The buffer of an output stream.

#pragma once

#include "fuzz.h"

// A span of 'room' bytes, and what was handed on from it.
struct WriterModel {
    explicit WriterModel(size_t room) : span(room, '\0') {}
    void flush()
    {
        sent.append(span, 0, at);
        offset = relative ? long(at) : offset + long(at);
        at = 0;
    }
    void put(char c) { write(string(1, c)); }
    void write(const string& text)
    {
        size_t done = 0;
        do {
            if (at == span.size()) flush();
            const size_t n = text.copy(&span[at], span.size() - at, done);
            done += n;
            at += n;
            written = std::max(written, at);
        } while (done < text.size());
    }
    string span, sent;
    size_t at = 0, written = 0;  // in the span: the next byte; behind the last byte ever written
    long offset = 0;
    bool relative = false;  // the position counts from the latest flush
};

template <class Number>
void putNumber(Input& input, zqostream& out, WriterModel& model, const char* format)
{
    Number number{};
    const string bytes = input.bytes(sizeof number);
    bytes.copy(reinterpret_cast<char*>(&number), bytes.size());
    char text[400];
    std::snprintf(text, sizeof text, format, number);
    out << number;
    model.write(text);
}

// One writing call, chosen by the input, on a stream and on its model.
inline void writeOnce(Input& input, zqostream& out, WriterModel& model)
{
    string text;
    switch (input.upTo(15)) {
    case 0:
        out << zqendl;
        model.put('\n');
        return model.flush();
    case 1: CHECK(out.flush()); return model.flush();
    case 2: out << (text = input.bytes(1)).c_str()[0]; return model.put(text.c_str()[0]);
    case 3: out << zqends; return model.put('\0');
    case 4:
        out << true << false;
        model.put('1');
        return model.put('0');
    case 5: return putNumber<short>(input, out, model, "%hd");
    case 6: return putNumber<unsigned short>(input, out, model, "%hu");
    case 7: return putNumber<int>(input, out, model, "%d");
    case 8: return putNumber<unsigned long>(input, out, model, "%lu");
    case 9: return putNumber<double>(input, out, model, "%f");
    case 10: {
        const size_t target = input.upTo(65535) % (model.written + 1);
        if (target < model.span.size()) {
            static long position;
            position = model.offset + long(target);
            out << *[](zqstream& stream) -> zqstream& {
                return CHECK(stream.seek(position)), stream;
            };
            model.at = target;
        }
        return;
    }
    default:
        text = input.text(140000);
        CHECK(out.write(text) == text.size() && out.count() == text.size());
        return model.write(text);
    }
}

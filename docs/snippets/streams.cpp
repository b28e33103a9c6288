//! [a stream of your own]
#include <zqplatform/zqstream.h>

#include <algorithm>
#include <string>
#include <utility>

using namespace ZQPlatform;

// A text, not an empty one, over and over: 'length' bytes in all.
class RepeatInput : public zqistream {
public:
    RepeatInput(std::string text, long length) : _text(std::move(text)), _length(length)
    {
        _eof = false;  // there is something to fetch
    }

protected:
    bool _zqfill() override
    {
        const long pos = tell();  // of the first byte behind the span
        const long n = std::min(_length - pos, static_cast<long>(ZQ_STREAM_BUFSIZE));
        if (n <= 0) {
            _ptr = _end;
            _eof = true;
            return false;
        }
        for (long i = 0; i < n; ++i)
            _buf[i] = static_cast<unsigned char>(_text[zqsize_t(pos + i) % _text.size()]);
        _offset = pos;
        _ptr = _buf;
        _end = _buf + n;
        return true;
    }

    bool _zqseek(long pos) override
    {
        if (pos < 0 || pos >= _length)
            return false;
        _offset = pos;
        _ptr = _end = _buf;
        _eof = false;
        return _zqfill();
    }

    zqsize_t _zqsize() override { return static_cast<zqsize_t>(_length); }

    bool _zqclose() override
    {
        _length = 0;  // nothing more to fetch
        return true;
    }

private:
    std::string _text;
    long _length;
};

// Writes the bytes as hexadecimal numbers to another stream, which stays the caller's.
class HexOutput : public zqostream {
public:
    explicit HexOutput(zqostream& to) : _to(&to) {}
    HexOutput(const HexOutput&) = delete;
    HexOutput& operator=(const HexOutput&) = delete;
    ~HexOutput() override { close(); }

protected:
    bool _zqflush() override
    {
        if (!_to) {
            _eof = true;
            return false;
        }
        static const char digits[] = "0123456789ABCDEF";
        for (const unsigned char* p = _buf; p != _ptr; ++p) {
            const char text[] = {digits[*p >> 4], digits[*p & 15], ' '};
            if (_to->write(text, sizeof text) != sizeof text)
                _eof = true;
        }
        if (!_to->flush())
            _eof = true;
        _offset += _ptr - _buf;
        _ptr = _buf;
        return !_eof;
    }

    void _zqclose() override { _to = nullptr; }

private:
    zqostream* _to;  // null: closed
};

int main()
{
    RepeatInput in("one two three ", 1000000);
    HexOutput out(zqout);
    std::string four;
    in.read(four, 4);
    out.write(four);
    if (!in.seek(700000))
        return 1;
    in.read(four, 4);
    out.write(four);
    return out.flush() ? 0 : 1;
}
//! [a stream of your own]

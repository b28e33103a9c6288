// Binary images: numbers, strings and packed arrays as bytes that are the same on every host.
//
//   unsigned int width = ZQ_io_util_calc_NumBits(values, count);
//   ZQ_io_write_binary(out, name);                                   // a string
//   ZQ_io_write_binary(out, reinterpret_cast<unsigned char*>(&count), sizeof count, 1);
//   ZQ_io_write_binary_compressed(out, values, width, count);        // width bits per value
//
// Every function exists for memory and for a stream. An image in memory is neither checked for
// null nor bounded: the caller provides room for what is written and all of what is read, and
// advances its own pointer by the result. No byte outside the image is touched.
//
// Functions for streams report nothing: the state of the stream tells whether it failed. Results
// are bytes, counts are elements. No shared state; safe on distinct buffers and streams.
// The layouts are drawn, with examples, in docs/formats.md.

#ifndef ZQPLATFORM_BINARY_IO_H
#define ZQPLATFORM_BINARY_IO_H

#include "zq_binary_dump.h"
#include "zqbyteorder.h"
#include "zqexport.h"
#include "zqstream.h"

#include <string>

namespace ZQPlatform {

// ---- Arrays of numbers: 'count' elements of 'size' bytes, most significant byte first
//
// Sizes 2, 4 and 8 are reordered, bytes (size 1) are copied. Any other size is a mistake of the
// caller: the bytes are copied in the order of the host, and "Error: undefined block size - SIZE"
// goes to zqerr. A null element buffer or size 0 gives 0 and touches nothing.

// Writes size * count bytes and returns size * count, on a stream also if the stream failed.
// A stream is written to as by one write() per reordered element, or by one for all of the others.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary(unsigned char* dst, const unsigned char* src,
                                              zqsize_t size, unsigned int count);
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary(zqostream& dst, const unsigned char* src,
                                              zqsize_t size, unsigned int count);

// Reads from memory and returns size * count. Deliberate: with an undefined size only 'count'
// bytes are copied, although size * count is the result.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary(const unsigned char* src, unsigned char* dst,
                                             zqsize_t size, unsigned int count);

// Reads from a stream, as by one read() per reordered element, or by one of 'count' bytes for the
// others (undefined sizes, too). Deliberate: returns what the last read returned, so ten elements
// of 4 bytes give 4. Where the stream ends early, the elements not reached have the order of
// their bytes reversed all the same.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary(zqistream& src, unsigned char* dst, zqsize_t size,
                                             unsigned int count);

// ---- Strings: the length in 4 bytes, then that many bytes of any value

// Returns 4 + length. A string of 4 GiB and more is not written: the result is 0, and "Attempting
// to write a string larger than 4GB" goes to the process's standard error file.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary(unsigned char* dst, const std::string& s);
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary(zqostream& dst, const std::string& s);

// Returns 4 + length. Throws std::bad_alloc where there is no memory for the announced length; 's'
// then keeps its value.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary(const unsigned char* src, std::string& s);

// The same from a stream. If the stream ends early, the string has its announced length, with
// zeros for the bytes that are missing (bytes of the length itself count as 0, too), and the
// result, which is the sum of what the two reads returned, is less than 4 + length.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary(zqistream& src, std::string& s);

// ---- Packed integers: 'width' bits per value
//
// Values of 1 to 31 bits follow each other as one stream of bits, from the least significant bit
// of the first byte on. The image has floor(count * width / 8) + 1 bytes. Width 0 gives one byte,
// and reads back as zeros. From width 32 on the image is an array of 4-byte numbers as above.
// The image holds neither width nor count: the caller stores them.
//
// Deliberate: values are not cut to the width. A value that does not fit is written as whole
// bytes, as many as hold the width, up to the end of the byte in which the next value begins, and
// spoils the values that lie there (none for widths 8, 16 and 24). A width from
// ZQ_io_util_calc_NumBits() fits.
//
// count * width is a 32-bit number. Where it wraps, the image has the length that the wrapped
// number gives: values that lie behind it are not written, and are read as 0.
//
// Null values or a count of 0 give 0 and touch nothing. Image and values must not overlap, but
// for an image of floats in memory: it may be read into the place where it stands.

// The bits that the largest value needs, 0 (all values are zero, or none is there) to 32.
ZQPLATFORM_EXPORT unsigned int ZQ_io_util_calc_NumBits(const unsigned int* values,
                                                       unsigned int count);

// Returns the length of the image, on a stream whatever the stream did. One write() for all of it
// (from width 32 on, as for arrays of numbers).
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary_compressed(unsigned char* dst,
                                                         const unsigned int* values,
                                                         unsigned int width, unsigned int count);
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary_compressed(zqostream& dst, const unsigned int* values,
                                                         unsigned int width, unsigned int count);

// Returns the length of the image, from a stream, too, whatever it delivered; missing bytes count
// as 0. Deliberate: from width 32 on the result on a stream is that of the last element's read.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary_compressed(const unsigned char* src,
                                                        unsigned int* values, unsigned int width,
                                                        unsigned int count);
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary_compressed(zqistream& src, unsigned int* values,
                                                        unsigned int width, unsigned int count);

// ---- Packed floats: the range, then 'width' bits per value
//
// The image is the largest value and the smallest (4 bytes each), then the values as packed
// integers: q = (value - min) / (max - min) * (2^width - 1), rounded half up. A value reads back
// as q * (max - min) / (2^width - 1) + min. All steps are single precision, each rounded by
// itself, so images and values are the same bit for bit everywhere. From width 32 on the image is
// an array of 4-byte numbers, and nothing is lost.
//
// Width 0 is for no use: every value reads back as NaN, and so does an array whose range is no
// finite float. In a constant array every q is 0, and it reads back as it was, but for -0, which
// becomes +0. NaN is never taken into the range, unless
// it comes first: then every q is 0.
// Deliberate: q is not limited to 2^width - 1. From width 22 on, the largest values of an array
// may be rounded to 2^width, which spills like any integer that does not fit.

// The width with which values read back within about 'precision' / 2: the bits of the number
// (max - min) / precision + 0.5, cut to an integer of 32 bits. 0 if the range is below half the
// precision; such an array wants another form.
ZQPLATFORM_EXPORT unsigned int ZQ_io_util_calc_NumBits(const float* values, unsigned int count,
                                                       float precision);

// Returns the length of the image, on a stream whatever the stream did: 8 bytes more than for
// integers, or 4 * count.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary_compressed(unsigned char* dst, const float* values,
                                                         unsigned int width, unsigned int count);
ZQPLATFORM_EXPORT zqsize_t ZQ_io_write_binary_compressed(zqostream& dst, const float* values,
                                                         unsigned int width, unsigned int count);

// Returns the length of the image. From a stream: what the two reads of the range returned, plus
// the packed length; missing bytes count as 0. From width 32 on as for integers.
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary_compressed(const unsigned char* src, float* values,
                                                        unsigned int width, unsigned int count);
ZQPLATFORM_EXPORT zqsize_t ZQ_io_read_binary_compressed(zqistream& src, float* values,
                                                        unsigned int width, unsigned int count);

}  // namespace ZQPlatform

#endif

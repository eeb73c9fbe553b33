/*
 * Korva reference API: image-processing routines for hyperspectral cameras, defined to the last bit.
 *
 * This header is the manual. What holds for every routine stands here once:
 *
 * Arrays       Array2D: a T** with one pointer per row; image[row][column].
 *              Array3D_BSQ: a T*** with one table of row pointers per band; cube[band][row][column].
 *              The allocators below lay all samples out in one block, rows back to back and planes back to
 *              back. A routine that walks an image as one run from its first row pointer says so; all others
 *              follow the row pointers, and then the rows may lie anywhere.
 * Sample types uint16 is unsigned short, float is IEEE 754 binary32, double is IEEE 754 binary64.
 * Arguments    Outputs first, then inputs, then sizes (width, the samples per row, before height, the number
 *              of rows), then layout parameters and band numbers, then scalar parameters. Functions that take
 *              another order say so. Sizes count samples, rows, bands or pixels, never bytes.
 * Rounding     Every operation is rounded on its own to the stated type, to nearest with ties to even, in the
 *              stated order: no fused multiply-add, no reassociation, no extended precision. The same input
 *              gives the same bits on every processor. Where an operation makes a NaN or combines NaNs, the
 *              result is a NaN whose sign and payload are the processor's; a sample that is only moved keeps
 *              all its bits.
 * toUint16     Conversion of a double to uint16: add 0.5 in double, truncate toward zero to a signed 32-bit
 *              integer, keep its low 16 bits. So halves round up and nothing saturates: 2.5 gives 3, 65535.5
 *              gives 0, 65537 gives 1, -0.75 gives 0, -1.5 gives 65535. NaN gives 0, and so does a sum with
 *              0.5 that lies outside the signed 32-bit range.
 * Memory       The host owns every buffer. No processing routine allocates. Input and output are separate
 *              arrays unless a routine says "in place". Nothing outside the stated samples is read or written.
 * Checks       There are none: no argument is validated and no failure is reported. Each routine states its
 *              limits; outside them the behaviour is undefined unless "At the limits" says otherwise.
 * Stack        No call takes more than 64 KiB, unless the library was compiled without optimisation. Spectral
 *              correction of cubes and pixel runs, the median filters, the 7 x 7 filter and the new WLI come near it;
 *              all other routines take less than 16.
 * Threads      The library has no state. Calls may run at the same time on any threads as long as none of them
 *              writes memory that another one reads or writes.
 *
 * Release      The macros below tell which release a host is compiled against. The file of the library tells its own as
 *              text: strings libkorva_reference_api.so.1.0 | grep 'korva_reference_api release'
 *
 * C and C++ see the same functions. C++ also has overloads without the sample-type suffix for the reflectance
 * family and for the spectral correction of cubes.
 */
#ifndef KORVA_REFERENCE_API_H
#define KORVA_REFERENCE_API_H

#define KORVA_REFERENCE_API_VERSION_MAJOR 1
#define KORVA_REFERENCE_API_VERSION_MINOR 0
#define KORVA_REFERENCE_API_VERSION_PATCH 0

#if defined(__GNUC__)
#define KORVA_API __attribute__((visibility("default")))
#else
#define KORVA_API
#endif

/*
 * C, unlike C++, does not convert a float*** to a pointer whose inner levels are const. So C sees those
 * parameters without the inner qualifiers and takes a host's arrays as they are. A C host whose own rows are const gets
 * C++'s view of them, before the header is included, by
 *
 *   #define KORVA_INNER_CONST const
 */
#ifndef KORVA_INNER_CONST
#ifdef __cplusplus
#define KORVA_INNER_CONST const
#else
#define KORVA_INNER_CONST
#endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ==================================================================================================================
 * Utilities: arrays
 *
 *   Array2D         a table of height row pointers and a block of width * height samples. Row r starts at sample
 *                   r * width, so image[0] is the block and the rows form one run.
 *   Array3D_BSQ     a table of bands pointers into one table of bands * height row pointers over one block of
 *                   bands * height * width samples. cube[b] is row table entry b * height; sample
 *                   (band, row, column) is element (band * height + row) * width + column of cube[0][0].
 *
 * The caller owns an array that an allocator stored and returns it to the free function of the same layout. The
 * free functions reach the blocks through array[0] and array[0][0]; do not change those pointers. The float and
 * uint16 free functions of one layout do the same.
 * ================================================================================================================ */

/*
 * Allocates an Array2D of float. Samples are not initialised.
 *
 *   array    address of the caller's variable; receives the row table
 *   width    samples per row; 0 gives rows that all equal the start of an empty block
 *   height   rows, at least 1
 *
 * Costs two allocations: the sample block, then the row table.
 * At the limits: null is stored for height 0, for sizes whose product exceeds the address space and when memory is
 * short; nothing stays allocated then. The free function accepts null.
 */
KORVA_API void KORVA_Ref_AllocateArray2D_float(float*** array, unsigned long width, unsigned long height);

/* Allocates an Array2D of uint16; everything else as for float. */
KORVA_API void KORVA_Ref_AllocateArray2D_uint16(unsigned short*** array, unsigned long width, unsigned long height);

/* Frees an Array2D of float: its sample block, then its row table. Null is accepted and ignored. */
KORVA_API void KORVA_Ref_FreeArray2D_float(float** array);

/* Frees an Array2D of uint16. Null is accepted and ignored. */
KORVA_API void KORVA_Ref_FreeArray2D_uint16(unsigned short** array);

/*
 * Allocates an Array3D_BSQ of float. Samples are not initialised.
 *
 *   array    address of the caller's variable; receives the band table
 *   width    samples per row; 0 gives rows that all equal the start of an empty block
 *   height   rows of each band, at least 1
 *   bands    band planes, at least 1
 *
 * Costs three allocations: the band table, the row table, then the sample block.
 * At the limits: null is stored for height 0 or bands 0, for sizes whose product exceeds the address space and when
 * memory is short; nothing stays allocated then. The free function accepts null.
 */
KORVA_API void KORVA_Ref_AllocateArray3D_BSQ_float(float**** array, unsigned long width, unsigned long height,
                                                   unsigned long bands);

/* Allocates an Array3D_BSQ of uint16; everything else as for float. */
KORVA_API void KORVA_Ref_AllocateArray3D_BSQ_uint16(unsigned short**** array, unsigned long width,
                                                    unsigned long height, unsigned long bands);

/*
 * Frees an Array3D_BSQ of float: sample block, row table, band table.
 * Null is accepted at each level (array, array[0], array[0][0]); the levels above it are still freed.
 */
KORVA_API void KORVA_Ref_FreeArray3D_BSQ_float(float*** array);

/* Frees an Array3D_BSQ of uint16; null levels as for float. */
KORVA_API void KORVA_Ref_FreeArray3D_BSQ_uint16(unsigned short*** array);

/* ==================================================================================================================
 * Utilities: raw data files
 *
 * A raw file holds the samples exactly as they lie in memory, in the host's byte order, and nothing else.
 * ================================================================================================================ */

/*
 * Reads count elements from a file into a buffer with one fread.
 *
 *   data          receives count * elementSize bytes
 *   directory     first part of the path; ends with its separator when it names a directory, may be empty
 *   fileName      second part of the path; the two are joined as they are, nothing is inserted
 *   count         elements to read
 *   elementSize   bytes of one element: 2 for uint16, 4 for float, 8 for double
 *
 * At the limits: a shorter file fills the start of data and leaves the rest as it was. A file that cannot be opened
 * leaves data untouched. count 0 or elementSize 0 reads nothing.
 */
KORVA_API void KORVA_Ref_ReadRawDataFromDisk(void* data, char const* directory, char const* fileName,
                                             unsigned long count, unsigned long elementSize);

/*
 * Writes count elements from a buffer to a file with one fwrite. The file is created or emptied first.
 *
 *   data          count * elementSize bytes, only read
 *   directory, fileName, count, elementSize   as for reading
 *
 * At the limits: a full disk leaves a shorter file. A file that cannot be opened is not written. count 0 or
 * elementSize 0 leaves an empty file.
 */
KORVA_API void KORVA_Ref_WriteRawDataToDisk(void const* data, char const* directory, char const* fileName,
                                            unsigned long count, unsigned long elementSize);

/* ==================================================================================================================
 * CG: cube generation from snapshot sensors
 *
 * Snapshot mosaic (SSM): a cell of mosaicWidth * mosaicHeight filters repeats over the sensor, one filter per band;
 * band = cell row * mosaicWidth + cell column. Snapshot tiled (SST): the sensor is a grid of tiles, one per band,
 * numbered row by row across the width / tileWidth whole tiles of a grid row. Divisions truncate. Samples are
 * copied without change, and only the row pointers of out and in are used.
 * ================================================================================================================ */

/*
 * Copies a rectangle out of a frame: out[r][c] = in[top + r][left + c].
 *
 *   out                     at least cropHeight rows of cropWidth samples
 *   in                      frame of height rows of width samples
 *   width, height           the frame's size; not read
 *   left, top               frame column and row of the rectangle's first sample
 *   cropWidth, cropHeight   the rectangle's size
 *
 * Limits: left + cropWidth <= width, top + cropHeight <= height. out and in do not overlap.
 * At the limits: cropWidth 0 or cropHeight 0 copies nothing.
 */
KORVA_API void KORVA_Ref_CG_CropImage_uint16(unsigned short** out, unsigned short** in, unsigned long width,
                                             unsigned long height, unsigned long left, unsigned long top,
                                             unsigned long cropWidth, unsigned long cropHeight);

/*
 * Takes one band's image out of a snapshot-mosaic frame, one sample per whole cell.
 *
 *   out[r][c] = in[band / mosaicWidth + r * mosaicHeight][band % mosaicWidth + c * mosaicWidth]
 *
 *   out                         at least height / mosaicHeight rows of width / mosaicWidth samples
 *   in                          frame of height rows of width samples
 *   width, height               the frame's size; incomplete cells at the right and bottom are not used
 *   mosaicWidth, mosaicHeight   the cell's size in samples
 *   band                        0 to mosaicWidth * mosaicHeight - 1
 *
 * Limits: mosaicWidth and mosaicHeight at least 1. out and in do not overlap.
 * At the limits: width < mosaicWidth or height < mosaicHeight writes nothing.
 */
KORVA_API void KORVA_Ref_CG_SSM_GetBandImage_uint16(unsigned short** out, unsigned short** in, unsigned long width,
                                                    unsigned long height, unsigned long mosaicWidth,
                                                    unsigned long mosaicHeight, unsigned long band);

/*
 * Takes one band's image, its tile, out of a snapshot-tiled frame.
 *
 *   out[r][c] = in[band / across * tileHeight + r][band % across * tileWidth + c],  across = width / tileWidth
 *
 *   out                     at least tileHeight rows of tileWidth samples
 *   in                      frame of height rows of width samples
 *   width, height           the frame's size; height is not read
 *   tileWidth, tileHeight   a tile's size in samples
 *   band                    0 to across * (height / tileHeight) - 1
 *
 * Limits: tileWidth at least 1 and at most width. out and in do not overlap.
 * At the limits: tileHeight 0 writes nothing.
 */
KORVA_API void KORVA_Ref_CG_SST_GetBandImage_uint16(unsigned short** out, unsigned short** in, unsigned long width,
                                                    unsigned long height, unsigned long tileWidth,
                                                    unsigned long tileHeight, unsigned long band);

/* ==================================================================================================================
 * CG: cube generation from line-scan sensors
 *
 * A line-scan (LS) frame carries its bands as strips of stripHeight rows from the top down. While the scene moves by
 * one strip per frame, from the first band of the range towards the last, each band sees a given strip of the scene
 * one frame after its predecessor. The stitching buffer is a ring per band: an Array3D_BSQ whose plane i has
 * N * stripHeight rows, N = lastBand - firstBand + 1, divided into N slots of one strip. All rings hold one strip of
 * the scene in the same slot.
 *
 * For each frame t = 0, 1, 2, ... of a scan: store it with StitchBandImage and frameIndex t; once t >= N - 1, take
 * the slice that this frame completed with GetStitchedSlice and the same t. The buffer needs no clearing. Every call
 * of a scan uses the same width, stripHeight, firstBand and lastBand. All arithmetic on sizes, bands and frameIndex
 * is unsigned 64-bit and wraps.
 * ================================================================================================================ */

/*
 * Allocates a stitching buffer: an Array3D_BSQ of bands planes of N * stripHeight rows of width samples.
 *
 *   buffer                address of the caller's variable
 *   width                 samples per row
 *   stripHeight           rows of one strip
 *   bands                 planes; StitchBandImage needs at least N
 *   firstBand, lastBand   the stitched range, both included; lastBand >= firstBand
 *
 * Samples are not initialised. At the limits: as for KORVA_Ref_AllocateArray3D_BSQ_uint16.
 */
KORVA_API void KORVA_Ref_CG_LS_AllocateStitchingBuffer_uint16(unsigned short**** buffer, unsigned long width,
                                                              unsigned long stripHeight, unsigned long bands,
                                                              unsigned long firstBand, unsigned long lastBand);

/* Frees a stitching buffer. Null is accepted and ignored. */
KORVA_API void KORVA_Ref_CG_LS_FreeStitchingBuffer_uint16(unsigned short*** buffer);

/*
 * Copies one band's strip out of a frame: out[r][c] = in[band * stripHeight + r][c].
 *
 *   out             at least stripHeight rows of width samples
 *   in              frame of height rows of width samples
 *   width, height   the frame's size; height is not read
 *   stripHeight     rows of one strip
 *   band            the frame band
 *
 * Limits: (band + 1) * stripHeight <= height. out and in do not overlap.
 * At the limits: stripHeight 0 writes nothing.
 */
KORVA_API void KORVA_Ref_CG_LS_GetBandImageStrip_uint16(unsigned short** out, unsigned short** in,
                                                        unsigned long width, unsigned long height,
                                                        unsigned long stripHeight, unsigned long band);

/*
 * Stores one strip in its slot of the ring, as one run of stripHeight * width samples from strip[0].
 *
 *   slot = (frameIndex + firstBand - band + N) % N;  it starts at row slot * stripHeight of plane bufferBand
 *
 *   buffer                the stitching buffer
 *   strip                 stripHeight rows of width samples, back to back; only strip[0] is used
 *   width, stripHeight    the strip's size
 *   firstBand, lastBand   the stitched range
 *   band                  the strip's frame band, in the range
 *   bufferBand            the plane that receives it, usually band - firstBand
 *   frameIndex            the running frame number, from 0
 *
 * Limits: lastBand >= firstBand. strip and buffer do not overlap.
 */
KORVA_API void KORVA_Ref_CG_LS_StitchBandImageStrip_uint16(unsigned short*** buffer, unsigned short** strip,
                                                           unsigned long width, unsigned long stripHeight,
                                                           unsigned long firstBand, unsigned long lastBand,
                                                           unsigned long band, unsigned long bufferBand,
                                                           unsigned long frameIndex);

/*
 * Stores the strips of all bands of the range in the ring: band firstBand + i goes to plane i.
 *
 *   buffer                the stitching buffer, at least N planes
 *   in                    frame; each strip's rows lie back to back, width samples apart, from its first row pointer
 *   width, stripHeight    the strips' size
 *   firstBand, lastBand   the stitched range; (lastBand + 1) * stripHeight rows of the frame are needed
 *   frameIndex            the running frame number, from 0
 *
 * At the limits: lastBand + 1 = firstBand (an empty range) stores nothing.
 */
KORVA_API void KORVA_Ref_CG_LS_StitchBandImage_uint16(unsigned short*** buffer, unsigned short** in,
                                                      unsigned long width, unsigned long stripHeight,
                                                      unsigned long firstBand, unsigned long lastBand,
                                                      unsigned long frameIndex);

/*
 * Copies the strip of the scene that frame frameIndex completed from all rings into the slice cube.
 *
 *   x = frameIndex - (N - 1), M = height / stripHeight;  from slot x % N of a ring to slot M - 1 - x % M of its plane
 *
 * The slice cube is a ring too: the first complete strip goes to the bottom slot, each later one a slot higher, and
 * after slot 0 the next replaces the bottom one. Rows below M * stripHeight are never written.
 *
 *   out                   slice cube, at least bands planes of height rows of width samples, planes made of one run
 *   buffer                the stitching buffer, at least bands planes
 *   width, stripHeight    the strips' size
 *   height                rows of each plane of out, at least stripHeight
 *   bands                 planes to copy, from plane 0 on
 *   firstBand, lastBand   the stitched range
 *   frameIndex            the number of the frame stored last
 *
 * Limits: stripHeight at least 1, lastBand >= firstBand. out and buffer do not overlap.
 * At the limits: bands 0 copies nothing. Before the ring is full (frameIndex < N - 1) some slot of each ring is copied
 * to some slot of out; its samples are incomplete.
 */
KORVA_API void KORVA_Ref_CG_LS_GetStitchedSlice_BSQ_uint16(unsigned short*** out, unsigned short*** buffer,
                                                           unsigned long width, unsigned long stripHeight,
                                                           unsigned long height, unsigned long bands,
                                                           unsigned long firstBand, unsigned long lastBand,
                                                           unsigned long frameIndex);

/* ==================================================================================================================
 * RC: reflectance calculation
 *
 * All arrays are runs of count samples; sample i of each belongs to the same pixel. Any layout serves that the arrays
 * of a call share. A coefficient of DBL_MAX marks a pixel without a usable white reference.
 * ================================================================================================================ */

/*
 * Subtracts a bias frame: out[i] = in[i] - bias[i], one float subtraction. Results may be negative.
 *
 *   out     result; may be in or bias (in place)
 *   in      frame
 *   bias    bias frame
 *   count   samples of each array
 */
KORVA_API void KORVA_Ref_RC_CorrectBias_float(float* out, float const* in, float const* bias, unsigned long count);

/* Subtracts a bias frame and stops at 0: out[i] = in[i] < bias[i] ? 0 : in[i] - bias[i]. In place as for float. */
KORVA_API void KORVA_Ref_RC_CorrectBias_uint16(unsigned short* out, unsigned short const* in,
                                               unsigned short const* bias, unsigned long count);

/*
 * Computes the coefficients that turn counts into reflectance from a white reference.
 *
 *   coefficients[i] = (factor1 * factor2) / white[i] in double;  DBL_MAX where white[i] <= 0 or white[i] == flagValue
 *
 *   coefficients       receives count doubles
 *   white              white reference, bias-corrected
 *   count              samples
 *   factor1, factor2   scale factors, for example the white's reflectance and an exposure ratio
 *   flagValue          sample value that marks a pixel as unusable
 *
 * At the limits: a NaN in white gives a NaN coefficient.
 */
KORVA_API void KORVA_Ref_RC_ComputeCorrectionCoefficients_float(double* coefficients, float const* white,
                                                                unsigned long count, double factor1, double factor2,
                                                                float flagValue);

/* Computes the coefficients from a uint16 white reference: DBL_MAX where white[i] is 0 or flagValue. */
KORVA_API void KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16(double* coefficients, unsigned short const* white,
                                                                 unsigned long count, double factor1, double factor2,
                                                                 unsigned short flagValue);

/*
 * Computes reflectance. With c = coefficients[i], v = in[i] and q = 1 / divisor, the first rule that applies:
 *
 *   1. c == DBL_MAX:      0 where v <= 0, flagValue elsewhere
 *   2. v == flagValue:    flagValue
 *   3. v >= limitValue:   limitValue
 *   4. (v * c) * q in double, rounded to float; neither clamped nor scaled
 *
 *   out            result; may be in (in place)
 *   in             frame, bias-corrected
 *   coefficients   count doubles
 *   count          samples
 *   divisor        positive and finite, for example the ratio of the exposures of frame and white
 *   flagValue      marks a pixel, in the input and in the result
 *   limitValue     at and above it a sample is saturated
 *
 * At the limits: divisor 0 makes q infinite, without a trap. In rule 1 the stored 0 is +0 and a NaN sample gives
 * flagValue; in rule 4 it gives NaN. A flagValue or limitValue of NaN matches no sample.
 */
KORVA_API void KORVA_Ref_RC_ComputeReflectance_float(float* out, float const* in, double const* coefficients,
                                                     unsigned long count, double divisor, float flagValue,
                                                     float limitValue);

/*
 * Computes reflectance as uint16. Rules 1 to 3 as for float; rule 4:
 *
 *   4. r = (v * c) * q in double, at most 1.0; then toUint16(r * fullScale)
 *
 *   fullScale   the result that stands for reflectance 1.0; all other arguments as for float
 *
 * At the limits: a NaN r gives 0, a negative r wraps as toUint16 says; neither occurs with positive, finite factors and
 * divisor.
 */
KORVA_API void KORVA_Ref_RC_ComputeReflectance_uint16(unsigned short* out, unsigned short const* in,
                                                      double const* coefficients, unsigned long count, double divisor,
                                                      unsigned short fullScale, unsigned short flagValue,
                                                      unsigned short limitValue);

/* ==================================================================================================================
 * SC: spectral correction
 *
 * The matrix has outBands rows of inBands double weights, reached through row pointers: matrix[o][i] weighs input band
 * i into output band o. Each sum starts from 0.0 and adds in[i] * matrix[o][i] for i ascending, product and sum each
 * rounded to double.
 * ================================================================================================================ */

/*
 * Applies a spectral-correction matrix to the spectrum of one pixel: out[o] = the sum of row o, rounded to float.
 *
 *   out        outBands values
 *   in         inBands values
 *   matrix     outBands rows of inBands weights
 *   outBands   output bands
 *   inBands    input bands
 *
 * Limits: out and in do not overlap.
 * At the limits: outBands 0 writes nothing. inBands 0 gives 0. Negative sums stay negative.
 */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_float(float* out, float const* in,
                                                          double KORVA_INNER_CONST* KORVA_INNER_CONST* matrix,
                                                          unsigned int outBands, unsigned int inBands);

/* Applies a spectral-correction matrix to one uint16 spectrum: out[o] = toUint16(the sum of row o), negatives wrap. */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_uint16(unsigned short* out, unsigned short const* in,
                                                           double KORVA_INNER_CONST* KORVA_INNER_CONST* matrix,
                                                           unsigned int outBands, unsigned int inBands);

/*
 * Applies a spectral-correction matrix to a band-interleaved-by-pixel run; each pixel as the spectrum function does.
 *
 *   out        pixels spectra of outBands values, one after another
 *   in         pixels spectra of inBands values, one after another
 *   matrix     outBands rows of inBands weights
 *   outBands   output bands
 *   inBands    input bands
 *   pixels     spectra; pixels * inBands may exceed 32 bits
 *
 * Limits: out and in do not overlap. At the limits: pixels 0 or outBands 0 writes nothing. inBands 0 gives 0.
 */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_BIP_float(float* out, float const* in,
                                                              double KORVA_INNER_CONST* KORVA_INNER_CONST* matrix,
                                                              unsigned int outBands, unsigned int inBands,
                                                              unsigned int pixels);

/* Applies a spectral-correction matrix to a uint16 run; each pixel as the uint16 spectrum function does. */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_BIP_uint16(unsigned short* out, unsigned short const* in,
                                                               double KORVA_INNER_CONST* KORVA_INNER_CONST* matrix,
                                                               unsigned int outBands, unsigned int inBands,
                                                               unsigned int pixels);

/*
 * Applies a spectral-correction matrix to a band-sequential cube; negative results become 0.
 *
 *   out[o][k] = s < 0 ? 0 : s rounded to float,  s = the sum of row o over in[i][k]
 *
 *   out        at least outBands planes of samples values; plane b is the run from out[b][0], later row pointers are
 *              not read
 *   scratch    samples doubles of the caller; on return, the unclamped sums of the last output band
 *   in         at least inBands planes of samples values, runs like out
 *   matrix     outBands rows of inBands weights
 *   outBands   output bands
 *   inBands    input bands
 *   samples    values of one plane, width * height
 *
 * Limits: out, scratch and in do not overlap.
 * At the limits: outBands 0 writes nothing, scratch included; samples 0 writes nothing. inBands 0 gives 0 in every
 * sample and in scratch. NaN stays NaN.
 */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float(
    float* KORVA_INNER_CONST* KORVA_INNER_CONST* out, double* scratch,
    float KORVA_INNER_CONST* KORVA_INNER_CONST* KORVA_INNER_CONST* in,
    double KORVA_INNER_CONST* KORVA_INNER_CONST* matrix, unsigned int outBands, unsigned int inBands,
    unsigned int samples);

/* Applies a spectral-correction matrix to a uint16 cube: s < 0 gives 0, any other s gives toUint16(s). */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16(
    unsigned short* KORVA_INNER_CONST* KORVA_INNER_CONST* out, double* scratch,
    unsigned short KORVA_INNER_CONST* KORVA_INNER_CONST* KORVA_INNER_CONST* in,
    double KORVA_INNER_CONST* KORVA_INNER_CONST* matrix, unsigned int outBands, unsigned int inBands,
    unsigned int samples);

/* ==================================================================================================================
 * DM: mosaic demosaicing
 *
 * The band images of a snapshot mosaic are sampled at different points of the cell. Demosaicing resamples each at one
 * target point of the cell, by bilinear interpolation between the samples of neighbouring cells. For each band: filter
 * position, offset of the target from it, four weights, then the resampling with the weights and the same offsets.
 * Positions and offsets are in sensor pixels from the cell's top-left pixel. Sizes are unsigned int here, and height
 * stands before width.
 * ================================================================================================================ */

/*
 * Computes the position of a band's filter in the cell: *row = band / mosaicWidth, then *column = band % mosaicWidth.
 *
 *   row, column   receive the position
 *   mosaicWidth   filters per cell row, at least 1
 *   band          the band number; beyond the cell it gives a row outside the cell
 */
KORVA_API void KORVA_Ref_DM_ComputeFilterPosition(unsigned int* row, unsigned int* column, unsigned int mosaicWidth,
                                                  unsigned int band);

/*
 * Computes the offset of the target point from a filter: *rowOffset = targetRow - filterRow, likewise for columns.
 *
 *   rowOffset, columnOffset    receive the offset
 *   filterRow, filterColumn    the filter's position
 *   targetRow, targetColumn    the target point, the same for all bands of a frame; need not be whole
 */
KORVA_API void KORVA_Ref_DM_ComputeTargetPositionRelativeToFilterPosition(double* rowOffset, double* columnOffset,
                                                                          unsigned int filterRow,
                                                                          unsigned int filterColumn, double targetRow,
                                                                          double targetColumn);

/*
 * Computes the four bilinear weights of an offset, all in double.
 *
 *   r = rowOffset < 0 ? rowOffset + P : rowOffset;  c = columnOffset < 0 ? columnOffset + Q : columnOffset
 *   inv = 1 / (P * Q);  a = (Q - c) * inv;  b = c * inv        with P = mosaicHeight, Q = mosaicWidth
 *   weights = { a * (P - r), b * (P - r), a * r, b * r }
 *
 *   weights                     receives top-left, top-right, bottom-left, bottom-right
 *   mosaicHeight, mosaicWidth   the cell's size; the product, formed in unsigned int, is not 0 and below 2^32
 *   rowOffset, columnOffset     strictly between -P and P, and -Q and Q; -0.0 is not negative
 *
 * At the limits: offsets outside the range extrapolate, with weights outside 0 to 1.
 */
KORVA_API void KORVA_Ref_DM_ComputeCoefficientsBilinear(double* weights, unsigned int mosaicHeight,
                                                        unsigned int mosaicWidth, double rowOffset,
                                                        double columnOffset);

/*
 * Resamples a band image at the target point of each cell, in double.
 *
 * Output (y, x) lies between rows y0, y0 + 1 and columns x0, x0 + 1, with y0 = y - 1 for a negative rowOffset and y
 * otherwise, x0 likewise:
 *
 *   ((w0 * in(y0, x0) + w1 * in(y0, x0 + 1)) + w2 * in(y0 + 1, x0)) + w3 * in(y0 + 1, x0 + 1)
 *
 * Where one row or column of that square lies outside the image, the two remaining weights, each divided by their sum
 * (unless that is exactly 0), weigh the two remaining samples, first in storage order first. Where a single sample
 * remains it is copied.
 *
 *   out                       height * width samples, row after row
 *   in                        band image, height * width samples, row after row
 *   height, width             the band image's size, each at least 1
 *   weights                   w0 to w3, in the order above; used as they are
 *   rowOffset, columnOffset   only their signs are used; -0.0 is not negative, NaN is not allowed
 *
 * Limits: out and in do not overlap.
 */
KORVA_API void KORVA_Ref_DM_ApplyDemosaicingBilinear_dbl(double* out, double const* in, unsigned int height,
                                                         unsigned int width, double const* weights, double rowOffset,
                                                         double columnOffset);

/* Resamples a uint16 band image in double and stores toUint16 of each value; the single corner sample is copied. */
KORVA_API void KORVA_Ref_DM_ApplyDemosaicingBilinear_uint16(unsigned short* out, unsigned short const* in,
                                                            unsigned int height, unsigned int width,
                                                            double const* weights, double rowOffset,
                                                            double columnOffset);

/* ==================================================================================================================
 * MF: median filtering
 *
 * An exchange (a, b) swaps values[a] and values[b] if values[a] > values[b], and does nothing otherwise, so also when
 * one of them is a NaN. The networks carry out fixed lists of exchanges, the widely published 19-exchange network for
 * 9 samples and 99-exchange network for 25 samples.
 * ================================================================================================================ */

/*
 * Returns the median of 9 samples by 19 exchanges.
 *
 *   values   9 samples; rearranged as the exchanges leave them, with the median in values[4]
 *
 *   (1,2) (4,5) (7,8) (0,1) (3,4) (6,7) (1,2) (4,5) (7,8) (0,3) (5,8) (4,7) (3,6) (1,4) (2,5) (4,7) (4,2) (6,4) (4,2)
 */
KORVA_API unsigned short KORVA_Ref_MF_Median1D_9_uint16(unsigned short* values);

/* Returns the median of 9 floats by the same exchanges. A NaN stays in its slot; the result is what values[4] holds. */
KORVA_API float KORVA_Ref_MF_Median1D_9_float(float* values);

/*
 * Returns the median of 25 samples by 99 exchanges.
 *
 *   values   25 samples; rearranged as the exchanges leave them, with the median in values[12]
 */
KORVA_API unsigned short KORVA_Ref_MF_Median1D_25_uint16(unsigned short* values);

/* Returns the median of 25 floats by the same exchanges. A NaN stays in its slot; the result is in values[12]. */
KORVA_API float KORVA_Ref_MF_Median1D_25_float(float* values);

/*
 * Returns the median of any number of samples: the middle one for an odd count, for an even count the mean of the two
 * middle ones with halves rounded up.
 *
 *   values   count samples; reordered so that values[count / 2] is in its sorted place, none before it is greater and
 *            none after it is smaller; the order within each side is unspecified
 *   count    at least 1
 */
KORVA_API unsigned short KORVA_Ref_MF_Median1D_uint16(unsigned short* values, unsigned long count);

/*
 * Returns the median of any number of floats. For an even count the two middle ones are added in float, and the sum is
 * halved in double and rounded to float; so two values of 3.0e38 give infinity.
 *
 *   values, count   as for uint16
 *
 * At the limits: with NaNs present the result is undefined.
 */
KORVA_API float KORVA_Ref_MF_Median1D_float(float* values, unsigned long count);

/*
 * Replaces every sample by the median of its 3 x 3 neighbourhood, clipped to the image.
 *
 * Full windows use the 9-sample network. Border windows hold 4 or 6 samples and use the general median, so they
 * average the two middle samples. Nothing is padded or copied through.
 *
 *   out      height rows of width samples
 *   in       height rows of width samples
 *   height   address of the number of rows, at least 2
 *   width    address of the samples per row, at least 2
 *
 * Height stands before width, both by address. Limits: out and in share no samples.
 */
KORVA_API void KORVA_Ref_MF_Median2D_3x3_uint16(unsigned short** out, unsigned short** in, unsigned long* height,
                                                unsigned long* width);

/*
 * Replaces every float by the median of its 3 x 3 neighbourhood, clipped to the image; otherwise as for uint16.
 * Full windows with NaNs give what the 9-sample network gives for the window taken row by row. In border windows a NaN
 * leaves the result undefined.
 */
KORVA_API void KORVA_Ref_MF_Median2D_3x3_float(float** out, float** in, unsigned long* height, unsigned long* width);

/*
 * Replaces every sample by the median of its 5 x 5 neighbourhood, clipped to the image.
 *
 * Full windows use the 25-sample network, the 3 x 3 windows in the image corners the 9-sample network. All other border
 * windows hold 12, 15, 16 or 20 samples and use the general median.
 *
 *   out, in         height rows of width samples each
 *   height, width   addresses of the image's size, each at least 4
 *
 * Height stands before width, both by address. Limits: out and in share no samples.
 */
KORVA_API void KORVA_Ref_MF_Median2D_5x5_uint16(unsigned short** out, unsigned short** in, unsigned long* height,
                                                unsigned long* width);

/*
 * Replaces every float by the median of its 5 x 5 neighbourhood, clipped to the image; otherwise as for uint16.
 * Full windows with NaNs give what the 25-sample network gives for the window taken row by row, the 3 x 3 windows in
 * the corners what the 9-sample network gives for theirs. In the other border windows a NaN leaves the result undefined.
 */
KORVA_API void KORVA_Ref_MF_Median2D_5x5_float(float** out, float** in, unsigned long* height, unsigned long* width);

/* ==================================================================================================================
 * Image operations
 *
 * Subtract, Add, Mix and the colour conversions walk each image or plane as one run of width * height samples from its
 * first row pointer; later row pointers are not read.
 * ================================================================================================================ */

/*
 * Subtracts two images: out[k] = a[k] - b[k], one float subtraction.
 *
 *   out             result; may be a or b (in place)
 *   a, b            operands
 *   width, height   the images' size; 0 in either writes nothing
 */
KORVA_API void KORVA_Ref_Subtract_float(float** out, float** a, float** b, unsigned long width, unsigned long height);

/* Adds two images: out[k] = a[k] + b[k], one float addition. Arguments as for KORVA_Ref_Subtract_float. */
KORVA_API void KORVA_Ref_Add_float(float** out, float** a, float** b, unsigned long width, unsigned long height);

/*
 * Mixes two images: out[k] = a[k] * weight + b[k] * (1 - weight) in double, rounded to float.
 *
 *   out             result; may be a or b (in place)
 *   a, b            operands
 *   width, height   the images' size; 0 in either writes nothing
 *   weight          the share of a; not clamped, values outside 0 to 1 extrapolate
 */
KORVA_API void KORVA_Ref_Mix_float(float** out, float** a, float** b, unsigned long width, unsigned long height,
                                   double weight);

/*
 * Copies a rectangle out of an image: out[r][c] = in[top + r][left + c]. Row pointers are used on both sides, and every
 * sample keeps its bits.
 *
 *   out, in, width, height, left, top, cropWidth, cropHeight   as for KORVA_Ref_CG_CropImage_uint16
 */
KORVA_API void KORVA_Ref_Crop_float(float** out, float** in, unsigned long width, unsigned long height,
                                    unsigned long left, unsigned long top, unsigned long cropWidth,
                                    unsigned long cropHeight);

/*
 * Filters an image with a 7 x 7 kernel: a correlation, neither flipped nor normalised.
 *
 *   out[r][c] = the sum over ky, kx of in[r - 3 + ky][c - 3 + kx] * kernel[7 * ky + kx], rounded to float
 *
 * Each sum starts from 0.0 and adds the 49 products in storage order of the kernel, product and sum each rounded to
 * double.
 *
 *   out             height rows of width samples; the 3-sample margin on every side keeps what it held
 *   in              height rows of width samples
 *   width, height   the images' size
 *   kernel          49 weights, row after row, from the top-left one
 *
 * Limits: out and in share no samples. At the limits: width or height below 7 writes nothing.
 */
KORVA_API void KORVA_Ref_ApplyKernel7x7_float(float** out, float** in, unsigned long width, unsigned long height,
                                              double const* kernel);

/*
 * Converts RGB planes to luma and colour differences, in the unscaled form of ITU-R BT.601 and BT.709.
 *
 *   Y  = (R * kr + G * gWeight) + B * kb in double, rounded to float,  gWeight = (1 - kb) - kr
 *   Cb = (B - Y) * cbScale,  Cr = (R - Y) * crScale
 *
 * The differences are float subtractions from the rounded Y, widened to double, multiplied by cbScale = 0.5 / (1 - kb)
 * or crScale = 0.5 / (1 - kr) and rounded to float.
 *
 *   out             planes Y, Cb, Cr in out[0] to out[2]
 *   in              planes R, G, B in in[0] to in[2]
 *   width, height   the planes' size; 0 in either writes nothing
 *   kb, kr          luma weights of blue and red: 0.114 and 0.299 for BT.601, 0.0722 and 0.2126 for BT.709
 *
 * Limits: out and in share no planes. At the limits: kb = 1 or kr = 1 makes a scale infinite, without a trap.
 */
KORVA_API void KORVA_Ref_RGBToYCbCr_float(float*** out, float*** in, unsigned long width, unsigned long height,
                                          double kb, double kr);

/*
 * Converts luma and colour differences to RGB planes, all in double and each result rounded to float once.
 *
 *   R = Cr * crFactor + Y,  crFactor = (1 - kr) + (1 - kr);   B = Cb * cbFactor + Y,  cbFactor = (1 - kb) + (1 - kb)
 *   G = ((Y - R * kr) - kb * B) * gInverse with the unrounded R and B,  gInverse = 1 / ((1 - kr) - kb)
 *
 *   out             planes R, G, B in out[0] to out[2]; may be the planes of in (in place)
 *   in              planes Y, Cb, Cr in in[0] to in[2]
 *   width, height   the planes' size; 0 in either writes nothing
 *   kb, kr          luma weights of blue and red
 *
 * At the limits: kb + kr = 1 makes gInverse infinite, without a trap.
 */
KORVA_API void KORVA_Ref_YCbCrToRGB_float(float*** out, float*** in, unsigned long width, unsigned long height,
                                          double kb, double kr);

/* ==================================================================================================================
 * RGBX: demosaicing
 *
 * An RGBX frame repeats this tile of 4 x 4 filters from its first pixel on:
 *
 *   X G X G
 *   G B G R
 *   X G X G
 *   G R G B
 *
 * Each ComputeBand function copies the band's own samples to their places in out and fills the other pixels with means
 * of two or four samples, in float, added from the left and multiplied by 0.5f or 0.25f. Pixels near the frame's edges
 * stay as they were, but every pixel at least 3 from each edge is written (given width a multiple of 4 and at least 8).
 *
 *   out             band image of the frame's size; may be in itself (in place)
 *   in              frame
 *   width, height   the frame's columns and rows
 * ================================================================================================================ */

/*
 * Computes the red band. A B pixel gets the mean of its four R samples at distance 2 (left + above + right + below), an
 * X pixel that of its two diagonal R samples, a G pixel that of its R neighbour and its B neighbour's new value.
 *
 * Limits: width a multiple of 4 and at least 8, height at least 2. At the limits: height below 6 writes nothing.
 */
KORVA_API void KORVA_Ref_RGBX_ComputeBand_R_float(float** out, float** in, unsigned long width, unsigned long height);

/*
 * Computes the green band. Every other pixel gets the mean of its four direct neighbours, left + above + right + below.
 *
 * Limits: width even and at least 2, height at least 1. At the limits: height 1 or 2 writes nothing.
 */
KORVA_API void KORVA_Ref_RGBX_ComputeBand_G_float(float** out, float** in, unsigned long width, unsigned long height);

/* Computes the blue band: as the red band with the roles of R and B exchanged. */
KORVA_API void KORVA_Ref_RGBX_ComputeBand_B_float(float** out, float** in, unsigned long width, unsigned long height);

/*
 * Computes the X band. A G pixel gets the mean of its two X neighbours, an R or B pixel that of its four diagonal ones,
 * top-left + top-right + bottom-left + bottom-right.
 *
 * Limits: width and height at least 2. At the limits: width or height below 4 writes nothing.
 */
KORVA_API void KORVA_Ref_RGBX_ComputeBand_X_float(float** out, float** in, unsigned long width, unsigned long height);

/*
 * Demosaics a frame into its four band images and cuts 3 pixels from every side.
 *
 *   out[b][r][c] = band b, in the order R, G, B, X, at frame pixel (r + 3, c + 3)
 *
 *   out             four images of height - 6 rows of width - 6 samples
 *   scratch         image of the frame's size; on return it holds each band's samples where a later band wrote nothing,
 *                   in the order R, G, B, X, and what it held before where none did
 *   frame           RGBX frame, only read
 *   width, height   the frame's columns and rows
 *
 * Limits: width a multiple of 4 and at least 8, height at least 6. out, scratch and frame share no samples.
 * At the limits: height 6 gives bands without rows; scratch is still written.
 */
KORVA_API void KORVA_Ref_RGBX_DemosaicFrame_float(float*** out, float** scratch, float** frame, unsigned long width,
                                                  unsigned long height);

/* ==================================================================================================================
 * RGBX: new WLI
 *
 * A new WLI is an RGB image whose colour comes from the R, G and B bands and whose fine luma detail mixes theirs with
 * that of the X band.
 * ================================================================================================================ */

/* Working buffers for one image size; contents are meaningful after a computation. */
typedef struct NewWLIBuffers {
  float** xResidual;  /* width * height: the X band minus its filtered image */
  float** yFiltered;  /* width * height: the filtered luma of the RGB bands */
  float** yResidual;  /* width * height: the luma minus its filtered image */
  float*** yccImage;  /* width * height * 3: the new R, G and B planes before cropping */
} NewWLIBuffers;

/*
 * Allocates working buffers for images of width * height samples. Contents are not initialised.
 *
 *   buffers         address of the caller's record
 *   width, height   the band images' size
 *
 * At the limits: each buffer is null where KORVA_Ref_AllocateArray2D_float or ..._Array3D_BSQ_float stores null.
 */
KORVA_API void KORVA_Ref_RGBX_AllocateNewWLIBuffers_float(NewWLIBuffers* buffers, unsigned long width,
                                                          unsigned long height);

/* Frees working buffers. Null members are accepted and ignored. */
KORVA_API void KORVA_Ref_RGBX_FreeNewWLIBuffers_float(NewWLIBuffers buffers);

/*
 * Computes the new WLI. With F the 7 x 7 filter and Y, Cb, Cr the converted R, G, B:
 *
 *   xResidual = X - F(X);  yFiltered = F(Y);  yResidual = Y - yFiltered
 *   newY = (yResidual * weight + xResidual * (1 - weight)) + yFiltered
 *   out = RGB of (newY, Cb, Cr), without the 3-sample margin that the filter cannot compute
 *
 * Every step rounds as the function of that step does: KORVA_Ref_ApplyKernel7x7_float, KORVA_Ref_Subtract_float,
 * KORVA_Ref_RGBToYCbCr_float, KORVA_Ref_Mix_float, KORVA_Ref_Add_float, KORVA_Ref_YCbCrToRGB_float.
 *
 *   out             three planes R, G, B of height - 6 rows of width - 6 samples
 *   in              R, G, B and X band images of height rows of width samples, rows back to back
 *   width, height   the band images' size, each at least 6, and that of buffers
 *   kernel          49 weights of the filter, usually a smoothing one
 *   buffers         working buffers of this size; their margins derive from what they held before
 *   kb, kr          luma weights of blue and red
 *   weight          the share of the RGB luma's detail; the X band's detail gets 1 - weight
 *
 * Limits: in, out and buffers share no samples. The kernel is copied first and may lie in any of them.
 * At the limits: width 6 or height 6 writes nothing to out.
 */
KORVA_API void KORVA_Ref_RGBX_ComputeNewWLI_float(float*** out, float*** in, unsigned long width,
                                                  unsigned long height, double const* kernel, NewWLIBuffers buffers,
                                                  double kb, double kr, double weight);

#ifdef __cplusplus
} /* extern "C" */

/* ==================================================================================================================
 * Overloads for C++: each forwards its arguments to the function of its sample type.
 * ================================================================================================================ */

/* Forwards to KORVA_Ref_RC_CorrectBias_float. */
KORVA_API void KORVA_Ref_RC_CorrectBias(float* out, float const* in, float const* bias, unsigned long count);

/* Forwards to KORVA_Ref_RC_CorrectBias_uint16. */
KORVA_API void KORVA_Ref_RC_CorrectBias(unsigned short* out, unsigned short const* in, unsigned short const* bias,
                                        unsigned long count);

/* Forwards to KORVA_Ref_RC_ComputeCorrectionCoefficients_float. */
KORVA_API void KORVA_Ref_RC_ComputeCorrectionCoefficients(double* coefficients, float const* white,
                                                          unsigned long count, double factor1, double factor2,
                                                          float flagValue);

/* Forwards to KORVA_Ref_RC_ComputeCorrectionCoefficients_uint16. */
KORVA_API void KORVA_Ref_RC_ComputeCorrectionCoefficients(double* coefficients, unsigned short const* white,
                                                          unsigned long count, double factor1, double factor2,
                                                          unsigned short flagValue);

/* Forwards to KORVA_Ref_RC_ComputeReflectance_float. */
KORVA_API void KORVA_Ref_RC_ComputeReflectance(float* out, float const* in, double const* coefficients,
                                               unsigned long count, double divisor, float flagValue,
                                               float limitValue);

/* Forwards to KORVA_Ref_RC_ComputeReflectance_uint16. */
KORVA_API void KORVA_Ref_RC_ComputeReflectance(unsigned short* out, unsigned short const* in,
                                               double const* coefficients, unsigned long count, double divisor,
                                               unsigned short fullScale, unsigned short flagValue,
                                               unsigned short limitValue);

/* Forwards to KORVA_Ref_SC_ApplySpectralCorrection_BSQ_float. */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_BSQ(float* const* const* out, double* scratch,
                                                        float const* const* const* in, double const* const* matrix,
                                                        unsigned int outBands, unsigned int inBands,
                                                        unsigned int samples);

/* Forwards to KORVA_Ref_SC_ApplySpectralCorrection_BSQ_uint16. */
KORVA_API void KORVA_Ref_SC_ApplySpectralCorrection_BSQ(unsigned short* const* const* out, double* scratch,
                                                        unsigned short const* const* const* in,
                                                        double const* const* matrix, unsigned int outBands,
                                                        unsigned int inBands, unsigned int samples);
#endif

#endif

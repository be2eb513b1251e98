/** @file amplitude_spectrum.h
 *
 * Amplitudes of the spectra of real values, of any even length; for C.
 *
 * Lengths that RealTransform knows are transformed by it, with the same bits on every processor;
 * the others by FFTW.
 */
#ifndef AMPLITUDE_SPECTRUM_H
#define AMPLITUDE_SPECTRUM_H

#ifdef __cplusplus
#include <cstdint>

extern "C" {
#else
#include <stdint.h>
#endif

typedef struct amplitude_spectrum amplitude_spectrum;

/** Bytes that the transform of an even length takes. */
int64_t amplitude_spectrum_bytes(int64_t length);

/** A transform of one length.
 *
 * @param length  an even number, at least 2, at most 2^30
 * @return the transform, which the caller frees with amplitude_spectrum_free(); null when there is
 * not enough memory
 */
amplitude_spectrum* amplitude_spectrum_create(int length);

/** The values to be transformed, `length` floats, zeros at first. */
float* amplitude_spectrum_values(amplitude_spectrum* spectrum);

/** The absolute values of their spectrum, from frequency 0 to length / 2. Valid until the next
 * call; the values stay. */
const float* amplitude_spectrum_of(amplitude_spectrum* spectrum);

/** Null is accepted. */
void amplitude_spectrum_free(amplitude_spectrum* spectrum);

#ifdef __cplusplus
}
#endif

#endif

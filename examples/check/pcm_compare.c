/*
 * pcm_compare: compares a decode with its reference decode.
 *
 * usage: pcm_compare DECODED REFERENCE MAX_RMS MAX_ABS [SKIP [MAP]]
 *
 * Both files are interleaved signed 16-bit little-endian PCM.  The samples of
 * the reference are compared with the same number of decoded samples; the
 * decode may be longer (a decoder may flush one frame more than the
 * reference kept) but not shorter.  Prints the RMS and the largest
 * difference in 16-bit steps and fails if either is above its bound.  SKIP
 * drops that many leading samples (all channels counted) of the decode, for
 * references that lack the first frame.  MAP, a comma-separated list such as
 * 1,2,0, names for each reference channel the decoded channel it is compared
 * with (a decoder that writes channels in element order against a reference
 * in WAV order); its length is the channel count.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

static short* Load(const char* path, long* count) {
  FILE* f = fopen(path, "rb");
  if (!f) return NULL;
  fseek(f, 0, SEEK_END);
  const long bytes = ftell(f);
  fseek(f, 0, SEEK_SET);
  unsigned char* raw = malloc((size_t)bytes + 1);
  short* s = malloc((size_t)bytes + 2);
  if (!raw || !s || fread(raw, 1, (size_t)bytes, f) != (size_t)bytes) {
    fclose(f);
    return NULL;
  }
  fclose(f);
  *count = bytes / 2;
  for (long i = 0; i < *count; ++i) s[i] = (short)(raw[2 * i] | (raw[2 * i + 1] << 8));
  free(raw);
  return s;
}

int main(int argc, char** argv) {
  if (argc < 5 || argc > 7) {
    fprintf(stderr, "usage: pcm_compare DECODED REFERENCE MAX_RMS MAX_ABS [SKIP [MAP]]\n");
    return 2;
  }
  int map[8] = {0};
  int channels = 1;
  if (argc == 7) {
    channels = 0;
    for (const char* p = argv[6]; *p && channels < 8; ++channels) {
      char* end = NULL;
      map[channels] = (int)strtol(p, &end, 10);
      p = *end == ',' ? end + 1 : end;
      if (end == p && *p) break;
    }
    for (int k = 0; k < channels; ++k) {
      if (map[k] < 0 || map[k] >= channels) {
        fprintf(stderr, "pcm_compare: bad channel map %s\n", argv[6]);
        return 2;
      }
    }
  }
  long n_got = 0, n_ref = 0;
  short* got = Load(argv[1], &n_got);
  short* ref = Load(argv[2], &n_ref);
  if (!got || !ref) {
    fprintf(stderr, "pcm_compare: cannot read %s\n", got ? argv[2] : argv[1]);
    return 1;
  }
  const double max_rms = atof(argv[3]), max_abs = atof(argv[4]);
  const long skip = argc >= 6 ? atol(argv[5]) : 0;
  if (skip < 0 || skip > n_got) return 1;
  got += skip;
  n_got -= skip;
  double sum = 0, worst = 0;
  for (long i = 0; i < n_ref && i < n_got; ++i) {
    const long k = i % channels;
    const long j = i - k + map[k];
    const double diff = (j < n_got ? (double)got[j] : 0.0) - (double)ref[i];
    sum += diff * diff;
    if (fabs(diff) > worst) worst = fabs(diff);
  }
  const double rms = n_ref ? sqrt(sum / (double)n_ref) : 0;
  const int ok = n_got >= n_ref && n_ref > 0 && rms <= max_rms && worst <= max_abs;
  printf("%ld samples compared (decode has %ld): rms %.4f, max %.0f (bounds %.2f, %.0f) %s\n", n_ref, n_got, rms,
         worst, max_rms, max_abs, ok ? "ok" : "FAIL");
  free(got - skip);
  free(ref);
  return ok ? 0 : 1;
}

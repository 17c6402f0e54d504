/* The module from C: loads it through the reference host and shrinks a made-up picture to half its size.
 *
 *   cc scale.c $(pkg-config --cflags --libs tarn) -o scale && ./scale
 *
 * Where the libraries lie in no folder of the system's, add -Wl,-rpath,$(pkg-config --variable=libdir tarn).
 */
#include <stdio.h>
#include <stdlib.h>

#include "quel/host.h"
#include "tarn.h"

int main(void) {
    enum { kWidth = 640, kHeight = 480 };
    uint8_t* pixels = malloc(kWidth * kHeight * 3);
    uint8_t* half = malloc(kWidth / 2 * kHeight / 2 * 3);
    if (!pixels || !half) return 1;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            for (int c = 0; c < 3; ++c) pixels[(y * kWidth + x) * 3 + c] = (uint8_t)(c == 0 ? x : c == 1 ? y : x ^ y);

    QuelERR err = {0};
    QuelHOST* host = QuelHOSTopen(&err);
    QuelOP scale;
    if (!host || QuelHOSTload(host, NULL, &err) != 0 || QuelHOSTfind(host, "tarn::scale-resize", &scale, &err) != 0) {
        fprintf(stderr, "%s\n", err.last.text);
        return 1;
    }

    LumoMAT src = {NULL, LUMO_U8 | LUMO_CHANNELS(3), kWidth, kHeight, kWidth * 3, pixels};
    LumoMAT dst = {NULL, LUMO_U8 | LUMO_CHANNELS(3), kWidth / 2, kHeight / 2, kWidth / 2 * 3, half};
    int64_t result = ((TarnScaleResize)scale.entry)(&scale.call, &err, NULL, &dst, &src, NULL, NULL, TARN_LANCZOS);
    if (result != 0)
        fprintf(stderr, "%s\n", err.last.text);
    else
        printf("pixel (100, 50) of the half-sized picture: %d %d %d\n", half[(50 * kWidth / 2 + 100) * 3],
               half[(50 * kWidth / 2 + 100) * 3 + 1], half[(50 * kWidth / 2 + 100) * 3 + 2]);

    QuelHOSTclose(host);
    free(pixels);
    free(half);
    return result == 0 ? 0 : 1;
}

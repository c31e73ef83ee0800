/* A coarse picture of a grid of counts in characters, darker for more. */
#ifndef OVEX_ACQUIRE_PICTURE_H
#define OVEX_ACQUIRE_PICTURE_H

#include <stdint.h>

enum { kPictureColumns = 64, kPictureRows = 32 };

typedef struct picture {
    int columns;
    int rows;
    char text[kPictureRows][kPictureColumns + 1]; /* each row terminated */
} picture;

/* Draws `values`, `height` rows of `width` (index y * width + x): each character stands for a
 * block of them, as few as fit the picture's size. */
void picture_draw(const uint64_t* values, uint64_t width, uint64_t height, picture* out);
void picture_print(const picture* drawn);

#endif

/* A coarse picture of a grid of counts in characters. */
#include "picture.h"

#include <stdio.h>

static const char kShades[] = " .:-=+*#%@";
enum { kDarkest = sizeof kShades - 2 };

static uint64_t ceil_div(uint64_t value, uint64_t divisor) {
    return (value + divisor - 1) / divisor;
}

/* The sum's share of the most, in whole shades; in double only for sums too large to multiply,
 * such as iToT sums of long scans. */
static int shade_of(uint64_t sum, uint64_t most) {
    if (most == 0) {
        return 0;
    }
    if (most <= UINT64_MAX / kDarkest) {
        return (int)(sum * kDarkest / most);
    }
    return (int)((double)sum / (double)most * kDarkest);
}

void picture_draw(const uint64_t* values, uint64_t width, uint64_t height, picture* out) {
    out->columns = 0;
    out->rows = 0;
    if (width == 0 || height == 0) {
        return;
    }
    const uint64_t block_x = ceil_div(width, kPictureColumns);
    const uint64_t block_y = ceil_div(height, kPictureRows);
    out->columns = (int)ceil_div(width, block_x);
    out->rows = (int)ceil_div(height, block_y);
    uint64_t sums[kPictureRows][kPictureColumns] = {{0}};
    uint64_t most = 0;
    for (uint64_t y = 0; y < height; ++y) {
        for (uint64_t x = 0; x < width; ++x) {
            uint64_t* sum = &sums[y / block_y][x / block_x];
            *sum += values[y * width + x];
            if (*sum > most) {
                most = *sum;
            }
        }
    }
    for (int row = 0; row < out->rows; ++row) {
        for (int column = 0; column < out->columns; ++column) {
            out->text[row][column] = kShades[shade_of(sums[row][column], most)];
        }
        out->text[row][out->columns] = '\0';
    }
}

void picture_print(const picture* drawn) {
    for (int row = 0; row < drawn->rows; ++row) {
        printf("  |%s|\n", drawn->text[row]);
    }
}

/* The floor that the program is measured against: the same USB requests from a bare loop.
 *
 *   bench-loop scan TIMES                probe every device of the maker, as a scan does
 *   bench-loop poll TIMES                read the input status of the first one
 *   bench-loop update FX3 FPGA EDID      write raw images to it (first-generation FPGA)
 *
 * One line of JSON says what it cost. The pauses that the program makes for the device are left out. */

#include <libusb.h>
#include <zlib.h>

#include <limits.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <time.h>

enum { VENDOR = 0xE5C1, BLOCK = 4096 };

static double wall_seconds(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)now.tv_sec + (double)now.tv_nsec / 1e9;
}

static double processor_seconds(void)
{
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return (double)usage.ru_utime.tv_sec + (double)usage.ru_stime.tv_sec
         + ((double)usage.ru_utime.tv_usec + (double)usage.ru_stime.tv_usec) / 1e6;
}

static void must(int result, const char *what)
{
    if (result < 0) {
        fprintf(stderr, "bench-loop: %s: %s\n", what, libusb_error_name(result));
        exit(1);
    }
}

static void out(libusb_device_handle *handle, uint8_t request, unsigned char *data, uint16_t length)
{
    must(libusb_control_transfer(handle, 0x40, request, 0, 0, data, length, 10000), "OUT");
}

static void wait_ready(libusb_device_handle *handle, uint8_t request)
{
    unsigned char ready = 0;
    while (!ready) {
        must(libusb_control_transfer(handle, 0xC0, request, 0, 0, &ready, 1, 1000), "status");
    }
}

/* Streams the file; returns the CRC-32 of what went out. */
static uint32_t stream(libusb_device_handle *handle, FILE *file, uint8_t write, uint8_t status)
{
    unsigned char block[BLOCK];
    uint32_t crc = (uint32_t)crc32(0, NULL, 0);
    size_t length;
    while ((length = fread(block, 1, sizeof(block), file)) > 0) {
        crc = (uint32_t)crc32(crc, block, (uInt)length);
        out(handle, write, block, (uint16_t)length);
        wait_ready(handle, status);
    }
    return crc;
}

static FILE *open_image(const char *name, uint32_t *size)
{
    FILE *file = fopen(name, "rb");
    if (!file) {
        perror(name);
        exit(1);
    }
    fseek(file, 0, SEEK_END);
    *size = (uint32_t)ftell(file);
    rewind(file);
    return file;
}

static void put32(unsigned char *at, uint32_t value)
{
    for (int i = 0; i < 4; ++i) {
        at[i] = (unsigned char)(value >> (8 * i));
    }
}

static void write_images(libusb_device_handle *handle, char **names)
{
    unsigned char header[12] = {'F', 'P', 'G', 'A'};
    unsigned char trailer[4];
    unsigned char edid[BLOCK];
    uint32_t size;

    FILE *file = open_image(names[0], &size);
    out(handle, 0xC5, NULL, 0);
    wait_ready(handle, 0xC8);
    stream(handle, file, 0xC6, 0xC8);
    out(handle, 0xC7, NULL, 0);
    fclose(file);

    file = open_image(names[1], &size);
    out(handle, 0xC1, NULL, 0);
    wait_ready(handle, 0xC4);
    put32(header + 4, size);
    put32(header + 8, (uint32_t)crc32(0, header, 8));
    out(handle, 0xC2, header, sizeof(header));
    put32(trailer, stream(handle, file, 0xC2, 0xC4));
    out(handle, 0xC2, trailer, sizeof(trailer));
    wait_ready(handle, 0xC4);
    out(handle, 0xC3, NULL, 0);
    fclose(file);

    file = open_image(names[2], &size);
    const size_t length = fread(edid, 1, sizeof(edid), file);
    out(handle, 0xCF, NULL, 0);
    out(handle, 0xD2, edid, (uint16_t)length);
    out(handle, 0xD4, NULL, 0);
    fclose(file);
}

/* Opens the maker's first device and claims its interface. */
static libusb_device_handle *open_first(void)
{
    libusb_device **list;
    const ssize_t count = libusb_get_device_list(NULL, &list);
    must((int)count, "device list");
    libusb_device_handle *handle = NULL;
    for (ssize_t i = 0; i < count && !handle; ++i) {
        struct libusb_device_descriptor descriptor;
        libusb_get_device_descriptor(list[i], &descriptor);
        if (descriptor.idVendor == VENDOR) {
            must(libusb_open(list[i], &handle), "open");
        }
    }
    libusb_free_device_list(list, 1);
    if (!handle) {
        fprintf(stderr, "bench-loop: no device\n");
        exit(1);
    }
    libusb_kernel_driver_active(handle, 0);
    must(libusb_claim_interface(handle, 0), "claim");
    return handle;
}

static void give_back(libusb_device_handle *handle)
{
    libusb_attach_kernel_driver(handle, 0);
    libusb_release_interface(handle, 0);
    libusb_close(handle);
}

static void update(char **names)
{
    libusb_device_handle *handle = open_first();
    const double start = wall_seconds();
    const double used = processor_seconds();
    write_images(handle, names);
    printf("{\"wall\": %.6f, \"processor\": %.6f}\n", wall_seconds() - start, processor_seconds() - used);
    give_back(handle);
}

static void polls(int times)
{
    unsigned char status[29];
    const double start = wall_seconds();
    for (int i = 0; i < times; ++i) {
        libusb_device_handle *handle = open_first();
        must(libusb_control_transfer(handle, 0xC0, 0xB2, 0, 0, status, sizeof(status), 1000), "input status");
        give_back(handle);
    }
    printf("{\"wall\": %.6f}\n", wall_seconds() - start);
}

static void probe(libusb_device *device, const struct libusb_device_descriptor *descriptor)
{
    unsigned char text[128];
    unsigned char ready;
    libusb_device_handle *handle;
    must(libusb_open(device, &handle), "open");
    libusb_get_string_descriptor_ascii(handle, descriptor->iProduct, text, 127);
    libusb_get_string_descriptor_ascii(handle, descriptor->iSerialNumber, text, 127);
    libusb_get_string_descriptor_ascii(handle, 3, text, 127);
    libusb_kernel_driver_active(handle, 0);
    must(libusb_claim_interface(handle, 0), "claim");
    must(libusb_control_transfer(handle, 0xC0, 0xC8, 0, 0, &ready, 1, 1000), "ping");
    give_back(handle);
}

/* Returns how many devices there were. */
static int scan(void)
{
    int devices = 0;
    libusb_device **list;
    const ssize_t count = libusb_get_device_list(NULL, &list);
    must((int)count, "device list");
    for (ssize_t i = 0; i < count; ++i) {
        struct libusb_device_descriptor descriptor;
        libusb_get_device_descriptor(list[i], &descriptor);
        if (descriptor.idVendor == VENDOR) {
            probe(list[i], &descriptor);
            devices += 1;
        }
    }
    libusb_free_device_list(list, 1);
    return devices;
}

static void scans(int times)
{
    int fewest = INT_MAX;
    printf("{\"walls\": [");
    for (int i = 0; i < times; ++i) {
        const double start = wall_seconds();
        const int devices = scan();
        printf("%s%.6f", i ? ", " : "", wall_seconds() - start);
        fewest = devices < fewest ? devices : fewest;
    }
    printf("], \"devices\": %d}\n", fewest);
}

int main(int argc, char **argv)
{
    must(libusb_init(NULL), "libusb_init");
    if (argc == 3 && strcmp(argv[1], "scan") == 0 && atoi(argv[2]) > 0) {
        scans(atoi(argv[2]));
    } else if (argc == 3 && strcmp(argv[1], "poll") == 0 && atoi(argv[2]) > 0) {
        polls(atoi(argv[2]));
    } else if (argc == 5 && strcmp(argv[1], "update") == 0) {
        update(argv + 2);
    } else {
        fprintf(stderr, "usage: bench-loop scan TIMES | poll TIMES | update FX3 FPGA EDID\n");
        return 2;
    }
    libusb_exit(NULL);
    return 0;
}

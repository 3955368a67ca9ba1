/* Loads a picture file through the plug-in that is installed with the library, and prints its size. */
#include <ko.h>

int main(int count, char **arguments) {
    if (count != 2) {
        return 2;
    }
    KoInit(NULL, NULL);
    RealImage *image = KoRealImageNew(1, 1);
    const int32_t status = KoRealImageLoad(image, arguments[1], NULL);
    if (status == KO_OK) {
        printf("%d x %d\n", (int)KoRealImageGetWidth(image), (int)KoRealImageGetHeight(image));
    } else {
        fprintf(stderr, "%s\n", KoErrorGetLastErrorMessage());
    }
    KoRealImageDelete(image);
    KoRelease();
    return status == KO_OK ? 0 : 1;
}

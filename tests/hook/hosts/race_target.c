/* Many functions, so that many slots can be bound while they are redirected. */
#define OFFERED __attribute__((visibility("default")))

#define FUNCTION(n)              \
    OFFERED int race_##n(void) { \
        return 1;                \
    }
#define EIGHT(n)   \
    FUNCTION(n##0) \
    FUNCTION(n##1) \
    FUNCTION(n##2) FUNCTION(n##3) FUNCTION(n##4) FUNCTION(n##5) FUNCTION(n##6) FUNCTION(n##7)

EIGHT(0) EIGHT(1) EIGHT(2) EIGHT(3) EIGHT(4) EIGHT(5) EIGHT(6) EIGHT(7)

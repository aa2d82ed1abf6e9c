#ifndef TQPLATFORM_TARGETCONDITIONALS_H
#define TQPLATFORM_TARGETCONDITIONALS_H

/*
 * What a program is compiled for. The platform answers for a phone, so that programs take the road
 * with RemoteIO and the audio session; the processor is the one that is there.
 */

#define TARGET_OS_MAC 1
#define TARGET_OS_IPHONE 1
#define TARGET_OS_IOS 1
#define TARGET_OS_EMBEDDED 1
#define TARGET_OS_OSX 0
#define TARGET_OS_MACCATALYST 0
#define TARGET_OS_SIMULATOR 0
#define TARGET_IPHONE_SIMULATOR TARGET_OS_SIMULATOR
#define TARGET_OS_TV 0
#define TARGET_OS_WATCH 0
#define TARGET_OS_VISION 0
#define TARGET_OS_WIN32 0
#define TARGET_OS_WINDOWS 0
#define TARGET_OS_UNIX 0
#define TARGET_OS_LINUX 0

#if defined(__x86_64__)
#define TARGET_CPU_X86_64 1
#else
#define TARGET_CPU_X86_64 0
#endif
#if defined(__aarch64__)
#define TARGET_CPU_ARM64 1
#else
#define TARGET_CPU_ARM64 0
#endif
#define TARGET_CPU_X86 0
#define TARGET_CPU_ARM 0
#define TARGET_CPU_PPC 0
#define TARGET_CPU_PPC64 0

#define TARGET_RT_LITTLE_ENDIAN 1
#define TARGET_RT_BIG_ENDIAN 0
#define TARGET_RT_64_BIT 1

#endif

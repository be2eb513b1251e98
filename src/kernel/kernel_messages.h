/// @file kernel_messages.h
///
/// The texts of the kernel's own messages, for hosts that recognise one of them. A text with a name
/// or a number in it is given in parts, in their order. They are part of the interface and do not
/// change.
#ifndef KERNEL_MESSAGES_H
#define KERNEL_MESSAGES_H

/// See kernel_messages.h.
namespace kernel_messages {

/// The sender of messages while no module is active.
inline constexpr char kernelName[] = "Kernel";

/// @name Phases of a job (type 1)
/// @{

/// At the start of JobManager::preProcessJob().
inline constexpr char preProcessingBanner[] =
    "********************* PRE-PROCESSING PHASE *********************";
/// At the start of JobManager::processJob().
inline constexpr char processingBanner[] =
    "*********************** PROCESSING PHASE ***********************";
/// At the start of JobManager::postProcessJob().
inline constexpr char postProcessingBanner[] =
    "********************* POST-PROCESSING PHASE ********************";
/// @}

/// @name Memory (type 4)
/// @{

/// Before the size in bytes of a block that could not be allocated.
inline constexpr char canNotAllocate[] = "Can not allocate ";
/// Behind the size.
inline constexpr char byteMemoryBlock[] = " byte memory block";
/// @}

/// @name Scratch file
/// @{

/// Type 3: a trace is to be paged out and there is no directory for the file.
inline constexpr char scratchVariableNotSet[] = "VORN_SCRATCH environment variable is not set";
/// Type 3, before the path.
inline constexpr char canNotCreateScratchFile[] = "Can not create scratch file ";
/// Type 3, before the path, which is followed by ": " and the system's reason.
inline constexpr char canNotWriteToScratchFile[] = "Can not write to scratch file ";
/// Type 4, before the path, which is followed by ": " and the system's reason.
inline constexpr char canNotReadFromScratchFile[] = "Can not read from scratch file ";
/// Type 0, before the path.
inline constexpr char scratchFile[] = "Scratch file ";
/// Behind the path.
inline constexpr char successfullyCreated[] = " successfully created";
/// Behind the path.
inline constexpr char successfullyRemoved[] = " successfully removed";
/// @}

/// @name Loading of modules (type 1)
/// @{

/// The variable that says where modules are installed is missing.
inline constexpr char homeVariableNotSet[] = "VORN_HOME environment variable is not set";
/// Before the path of a library that could not be opened.
inline constexpr char moduleLibrary[] = "Module library ";
/// Before the name of a function that a library does not have.
inline constexpr char moduleFunction[] = "Module function ";
/// Behind either of them, before the loader's reason.
inline constexpr char loadError[] = " load error ";
/// Before the name of a module.
inline constexpr char module[] = "Module ";
/// Behind the name of a module, before the file name of its library.
inline constexpr char canNotLoadLibrary[] = " can not load library ";
/// Behind the name of a module, before the name of a phase and another quotation mark.
inline constexpr char canNotIdentifyFunction[] = " can not identify function '";
/// @}

} // namespace kernel_messages

#endif

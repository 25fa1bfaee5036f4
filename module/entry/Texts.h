// Every user-visible word of the module. The job-side texts double as the keys of the host's string
// tables (getLocalizedString returns the key itself while no table is loaded), so they are written
// here once and used everywhere by name.
#pragma once

namespace texts {

// Procedure and command.
inline constexpr char kProcedureName[] = "GENOSTAT";

// Automatic job names.
inline constexpr char kGenomicAnalysisJob[] = "Genomic_analysis_job";

// Output tables of /PRINT.
inline constexpr char kSummary[] = "Summary";
inline constexpr char kCount[] = "Count";
inline constexpr char kSamples[] = "Samples";
inline constexpr char kVariables[] = "Variables";
inline constexpr char kDetails[] = "Details";
inline constexpr char kMessage[] = "Message";
inline constexpr char kDataset[] = "Dataset";
inline constexpr char kNone[] = "None";

// The job's message.
inline constexpr char kValid[] = "Valid:";
inline constexpr char kFastqFilesDetected[] = "fastQ file(s) detected.";
inline constexpr char kError[] = "Error:";
inline constexpr char kGenericError[] = "Generic Error.";

// Analysis failures, by the script's exit code.
inline constexpr char kGeneralError[] = "General error:";
inline constexpr char kFileNotFound[] = "File not found:";
inline constexpr char kInvalidJsonConfiguration[] = "Invalid JSON configuration";
inline constexpr char kInvalidConfiguration[] = "Invalid configuration";
inline constexpr char kErrorProcessingFastq[] = "Error processing FASTQ file";
inline constexpr char kMissingPythonDependencies[] = "Missing Python dependencies:";
inline constexpr char kPermissionDenied[] = "Permission denied accessing";
inline constexpr char kNoFastqFilesFound[] = "No FASTQ files found to process in";
inline constexpr char kErrorWritingOutput[] = "Error writing output to";
inline constexpr char kInvalidAdapterSequence[] = "Invalid adapter sequence:";
inline constexpr char kErrorInParallelProcessing[] = "Error in parallel processing";
inline constexpr char kInsufficientMemory[] = "Insufficient memory while processing";
inline constexpr char kInvalidCommandLineArguments[] = "Invalid command line arguments";
inline constexpr char kUnknownErrorOccurred[] = "Unknown error occurred";

// Diagnostics on the process's standard streams.
inline constexpr char kErrorFileNotFound[] = "\n Error file not found";
inline constexpr char kErrorFileContent[] = "\n  file :";
inline constexpr char kFileDeletionFailed[] = "File deletion failed";

}  // namespace texts

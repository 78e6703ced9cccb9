#include "collect/quilbase.h"

#include "logfile/factory_output.h"
#include "logfile/file_names.h"
#include "logfile/mapped_output.h"

using namespace QuilCommon;

namespace {

constexpr size_t kMostFiles = FileNames::kIndexes;
constexpr uint64_t kDefaultFiles = 10;
constexpr uint64_t kDefaultArchives = 2;

bool RetriesStream(const QuilcatGroup_t& group) {
  return group.style == STYLE_MONITOR_NODE && group.on_write_failure == WRITE_FAILURE_RETRY;
}

LogOutput::Settings OutputSettings(const QuilcatGroup_t& group, bool mapped) {
  LogOutput::Settings settings;
  settings.outputFilePath = group.output_file_path;
  settings.keepRefused = RetriesStream(group);
  QuilcatInfo_t* info = group.info;
  if (info == nullptr) {
    settings.maxFiles = mapped ? kDefaultFiles : kDefaultArchives;
    return settings;
  }
  if (info->maxCompressdFiles > kMostFiles) {
    info->maxCompressdFiles = kMostFiles;
  }
  const size_t files = info->maxCompressdFiles;
  settings.maxFiles = mapped ? files : FileNames::archivesFor(files);
  settings.rotateSizeKB = info->rotate_size_kbytes;
  settings.syncSeconds = info->sync_seconds;
  settings.removeEmpty = info->empty_files == EMPTY_FILES_REMOVE;
  return settings;
}

}  // namespace

Quilbase::Quilbase(QuilcatGroup_t* group, type_write writeMode) {
  if (group == nullptr) {
    return;
  }
  failureRetry = group->failureRetry;
  retriesStream = RetriesStream(*group);
  const LogOutput::Settings settings = OutputSettings(*group, writeMode == WRITE_MMAP);
  LogOutput::Owner& self = *this;
  switch (writeMode) {
    case WRITE_MMAP:
      output = std::make_unique<MappedOutput>(settings, self);
      monitorDir = std::make_unique<MonitorDir>(settings.outputFilePath);
      monitorDir->SetupLogBase(output.get());
      monitorDir->start();
      break;
    case WRITE_FACTORY:
      output = std::make_unique<FactoryOutput>(settings, self);
      break;
  }
}

Quilbase::~Quilbase() = default;

int Quilbase::setupOutput() {
  return output != nullptr ? output->setupOutput() : 0;
}

int Quilbase::logcatWrite(const char* data, size_t len, bool lineDone) {
  return output != nullptr ? output->logcatWrite(data, len, lineDone) : 1;
}

void Quilbase::logcatClose() {
  if (output != nullptr) {
    output->logcatClose();
  }
}

void Quilbase::flushUnlessBusy() {
  if (output != nullptr) {
    output->flushUnlessBusy();
  }
}

void Quilbase::setWorker() {
  if (output != nullptr) {
    output->setWorker();
  }
}

void Quilbase::setUpForHeldText() {
  if (output != nullptr) {
    output->setUpForHeldText();
  }
}

void Quilbase::outputDirectoryMade() {
  if (monitorDir != nullptr) {
    monitorDir->WatchDirectories();
  }
}

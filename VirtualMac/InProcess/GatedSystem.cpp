#include "VirtualMac/InProcess/GatedSystem.h"

#include "VirtualMac/InProcess/FaultCodes.h"

namespace virtualmac {

// ---- object runtime

korvel::HandleRef GatedSmartChargeRuntime::dlopen(std::string_view path, int mode) {
  if (gate.enter(SeamCall::runtimeDlopen)) return 0;
  return process.smartCharge.dlopen(path, mode);
}

korvel::HandleRef GatedSmartChargeRuntime::classFromString(std::string_view name) {
  if (gate.enter(SeamCall::runtimeClass)) return 0;
  return process.smartCharge.classFromString(name);
}

bool GatedSmartChargeRuntime::isClass(korvel::HandleRef object) {
  if (gate.enter(SeamCall::runtimeIsClass)) return false;
  return process.smartCharge.isClass(object);
}

korvel::HandleRef GatedSmartChargeRuntime::getClassMethod(korvel::HandleRef cls,
                                                          std::string_view selector) {
  if (gate.enter(SeamCall::runtimeClassMethod)) return 0;
  return process.smartCharge.getClassMethod(cls, selector);
}

korvel::HandleRef GatedSmartChargeRuntime::getInstanceMethod(korvel::HandleRef cls,
                                                             std::string_view selector) {
  if (gate.enter(SeamCall::runtimeInstanceMethod)) return 0;
  return process.smartCharge.getInstanceMethod(cls, selector);
}

korvel::HandleRef GatedSmartChargeRuntime::callAlloc(korvel::HandleRef method,
                                                     korvel::HandleRef cls) {
  if (gate.enter(SeamCall::runtimeAlloc)) return 0;
  return process.smartCharge.callAlloc(method, cls);
}

korvel::HandleRef GatedSmartChargeRuntime::callInit(korvel::HandleRef method,
                                                    korvel::HandleRef object,
                                                    std::string_view clientName) {
  if (gate.enter(SeamCall::runtimeInit)) {
    process.smartCharge.release(object);
    return 0;
  }
  return process.smartCharge.callInit(method, object, clientName);
}

bool GatedSmartChargeRuntime::respondsToSelector(korvel::HandleRef object,
                                                 std::string_view selector) {
  if (gate.enter(SeamCall::runtimeResponds)) return false;
  return process.smartCharge.respondsToSelector(object, selector);
}

bool GatedSmartChargeRuntime::callBoolean(korvel::HandleRef object, std::string_view selector) {
  if (gate.enter(SeamCall::runtimeCallBoolean)) return false;
  return process.smartCharge.callBoolean(object, selector);
}

namespace {

void fill(korvel::ErrorSlot& slot, const InjectedFault& fault) {
  if (!fault.text.empty()) slot = fault.text;
}

}  // namespace

std::int32_t GatedSmartChargeRuntime::callInt32(korvel::HandleRef object, std::string_view selector,
                                                korvel::ErrorSlot& error) {
  if (const auto fault = gate.enter(SeamCall::runtimeCallInt32)) {
    fill(error, *fault);
    return 0;
  }
  return process.smartCharge.callInt32(object, selector, error);
}

korvel::PropertyValue GatedSmartChargeRuntime::callObject(korvel::HandleRef object,
                                                          std::string_view selector,
                                                          korvel::ErrorSlot& error) {
  if (const auto fault = gate.enter(SeamCall::runtimeCallObject)) {
    fill(error, *fault);
    return {};
  }
  return process.smartCharge.callObject(object, selector, error);
}

bool GatedSmartChargeRuntime::callSetUInt8(korvel::HandleRef object, std::string_view selector,
                                           std::uint8_t value, korvel::ErrorSlot& error) {
  if (const auto fault = gate.enter(SeamCall::runtimeCallSetUInt8)) {
    fill(error, *fault);
    return false;
  }
  return process.smartCharge.callSetUInt8(object, selector, value, error);
}

void GatedSmartChargeRuntime::release(korvel::HandleRef object) {
  if (gate.enter(SeamCall::runtimeRelease)) return;
  process.smartCharge.release(object);
}

// ---- files

korvel::PosixResult GatedFileSystem::mkdir(const std::string& path, std::uint32_t mode) {
  if (const auto fault = gate.enter(SeamCall::fileMkdir)) return posixFailure(*fault);
  return process.files.mkdir(path, mode);
}

korvel::PosixResult GatedFileSystem::chmod(const std::string& path, std::uint32_t mode) {
  if (const auto fault = gate.enter(SeamCall::fileChmod)) return posixFailure(*fault);
  return process.files.chmod(path, mode);
}

std::uint32_t GatedFileSystem::umask(std::uint32_t mask) {
  if (gate.enter(SeamCall::fileUmask)) return mask;
  return process.files.umask(mask);
}

korvel::PosixResult GatedFileSystem::openExclusive(const std::string& path, std::uint32_t mode) {
  if (const auto fault = gate.enter(SeamCall::fileOpenExclusive)) return posixFailure(*fault);
  return process.files.openExclusive(path, mode);
}

korvel::PosixResult GatedFileSystem::openReadOnly(const std::string& path) {
  if (const auto fault = gate.enter(SeamCall::fileOpenReadOnly)) return posixFailure(*fault);
  return process.files.openReadOnly(path);
}

korvel::PosixResult GatedFileSystem::write(int descriptor, std::span<const char> bytes) {
  if (const auto fault = gate.enter(SeamCall::fileWrite)) return posixFailure(*fault);
  return process.files.write(descriptor, bytes);
}

korvel::PosixResult GatedFileSystem::fsync(int descriptor) {
  if (const auto fault = gate.enter(SeamCall::fileFsync)) return posixFailure(*fault);
  return process.files.fsync(descriptor);
}

korvel::PosixResult GatedFileSystem::close(int descriptor) {
  if (const auto fault = gate.enter(SeamCall::fileClose)) {
    process.files.close(descriptor);
    return posixFailure(*fault);
  }
  return process.files.close(descriptor);
}

korvel::PosixResult GatedFileSystem::unlink(const std::string& path) {
  if (const auto fault = gate.enter(SeamCall::fileUnlink)) return posixFailure(*fault);
  return process.files.unlink(path);
}

std::expected<void, korvel::ErrorObject> GatedFileSystem::replaceItem(
    const std::string& original, const std::string& replacement) {
  if (const auto fault = gate.enter(SeamCall::fileReplaceItem)) {
    return std::unexpected(fileError(*fault));
  }
  return process.files.replaceItem(original, replacement);
}

bool GatedFileSystem::fileExists(const std::string& path) {
  if (gate.enter(SeamCall::fileExists)) return false;
  return process.files.fileExists(path);
}

std::expected<std::string, korvel::ErrorObject> GatedFileSystem::readFile(const std::string& path) {
  const auto fault = gate.enter(SeamCall::fileRead);
  if (fault && !fault->changesAnswer) return std::unexpected(fileError(*fault));
  auto content = process.files.readFile(path);
  if (fault && content && !content->empty()) content->front() = '?';
  return content;
}

// ---- code signing

korvel::SecurityStatus GatedCodeSigning::staticCodeCreateWithPath(std::string_view path,
                                                                  korvel::HandleRef& code) {
  if (const auto fault = gate.enter(SeamCall::codeCreateWithPath)) return securityCode(*fault);
  return process.codeSigning.staticCodeCreateWithPath(path, code);
}

korvel::SecurityStatus GatedCodeSigning::copyGuestWithPid(std::int32_t pid,
                                                          korvel::HandleRef& code) {
  if (const auto fault = gate.enter(SeamCall::codeCopyGuest)) return securityCode(*fault);
  return process.codeSigning.copyGuestWithPid(pid, code);
}

korvel::SecurityStatus GatedCodeSigning::copyStaticCode(korvel::HandleRef code,
                                                        korvel::HandleRef& staticCode) {
  if (const auto fault = gate.enter(SeamCall::codeCopyStatic)) return securityCode(*fault);
  return process.codeSigning.copyStaticCode(code, staticCode);
}

korvel::SecurityStatus GatedCodeSigning::copySigningInformation(
    korvel::HandleRef staticCode, std::uint32_t flags, korvel::PropertyValue& information) {
  if (const auto fault = gate.enter(SeamCall::codeCopyInformation)) return securityCode(*fault);
  return process.codeSigning.copySigningInformation(staticCode, flags, information);
}

void GatedCodeSigning::release(korvel::HandleRef code) {
  if (gate.enter(SeamCall::codeRelease)) return;
  process.codeSigning.release(code);
}

}  // namespace virtualmac

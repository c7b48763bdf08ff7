// A program from the time when the toolkit was one folder, and export macros and automation values lay in platform/.
#include <Korvane/Dicom/Lib/AcceptPolicy.h>
#include <Korvane/Dicom/Lib/AssociatePDU.h>
#include <Korvane/Dicom/Lib/Buffer.h>
#include <Korvane/Dicom/Lib/CodecManager.h>
#include <Korvane/Dicom/Lib/CodecModule.h>
#include <Korvane/Dicom/Lib/CursorList.h>
#include <Korvane/Dicom/Lib/DICOMFile.h>
#include <Korvane/Dicom/Lib/DICOMObject.h>
#include <Korvane/Dicom/Lib/DataSetWalker.h>
#include <Korvane/Dicom/Lib/DcmDictionary.h>
#include <Korvane/Dicom/Lib/DcmService.h>
#include <Korvane/Dicom/Lib/DcmSocket.h>
#include <Korvane/Dicom/Lib/DiagnosticDump.h>
#include <Korvane/Dicom/Lib/DimseCommand.h>
#include <Korvane/Dicom/Lib/ElementTree.h>
#include <Korvane/Dicom/Lib/Encapsulation.h>
#include <Korvane/Dicom/Lib/FileBuffer.h>
#include <Korvane/Dicom/Lib/FolderSink.h>
#include <Korvane/Dicom/Lib/FragmentedFrames.h>
#include <Korvane/Dicom/Lib/MemoryBuffer.h>
#include <Korvane/Dicom/Lib/PDataBuffers.h>
#include <Korvane/Dicom/Lib/PDataTF.h>
#include <Korvane/Dicom/Lib/PduHeader.h>
#include <Korvane/Dicom/Lib/PublicDictionary.h>
#include <Korvane/Dicom/Lib/ReleasePDU.h>
#include <Korvane/Dicom/Lib/ReplaceValue.h>
#include <Korvane/Dicom/Lib/SocketBuffer.h>
#include <Korvane/Dicom/Lib/StorageProvider.h>
#include <Korvane/Dicom/Lib/StorageUser.h>
#include <Korvane/Dicom/Lib/TemplateStack.H>
#include <Korvane/Dicom/Lib/TransferSyntaxCodec.h>
#include <Korvane/Dicom/Lib/TransferSyntaxTable.h>
#include <Korvane/Dicom/Lib/TypeCode.h>
#include <Korvane/Dicom/Lib/UniqueFileName.h>
#include <Korvane/Dicom/Lib/VR.h>
#include <Korvane/Dicom/Lib/ValueText.h>
#include <Korvane/platform/Automation.h>
#include <Korvane/platform/CodecExport.h>
#include <Korvane/platform/Export.h>
// Beside those of today they are still one declaration each.
#include <Korvane/Dicom.h>
#include <Korvane/Korvane.h>

#include <cstring>

int main() {
    const OLECHAR kept[] = {'k', 'e', 'p', 't', 0};
    BSTR const text = SysAllocString(kept);
    const bool isKept = SysStringLen(text) == 4;
    SysFreeString(text);

    DICOMObject dataSet;
    VR* const rows = new VR(0x0028, 0x0010, 2, 1);
    std::memcpy(rows->m_pData, "\x10\0", 2);
    return isKept && dataSet.Push(rows) == 1 && dataSet.GetVR(0x0028, 0x0010) == rows ? 0 : 1;
}

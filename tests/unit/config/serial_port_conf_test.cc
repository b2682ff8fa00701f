#include "config/serial_port_conf.h"

#include <gtest/gtest.h>

#include <string>

#include "config_test_support.h"

namespace tessera {
namespace {

struct Records {
  SerialPortConfig serial;
  InventoryControlConfig inventory;
};

// Mode,Baudrate,Databits,Parity,Stopbits,Flowcontrol,TagMetaData,IsAutostart,tag count of the
// stop trigger|TagMetaString, after a read.
std::string readAndSummarize(Records& r) {
  readSerialPortConf(r.serial, r.inventory);
  const SerialPortConfig& s = r.serial;
  return std::to_string(s.Mode) + "," + std::to_string(s.Baudrate) + "," +
         std::to_string(s.Databits) + "," + s.Parity + "," + std::to_string(s.Stopbits) + "," +
         s.Flowcontrol + "," + std::to_string(s.TagMetaData) + "," + std::to_string(s.IsAutostart) +
         "," + std::to_string(r.inventory.TriggerRecord.stop.tagCount) + "|" + s.TagMetaString;
}

TEST(SerialPortConf, SectionLines) {
  test::readRows<Records>(
      {
          {{R"(<SerialPortConf TagMetaData="9" Parity="Even" Baudrate="9600" Mode="1" Baudrate="19200"/>)"},
           "1,19200,0,Even,0,,9,0,0|EPC,RSSI,<CRC>\r\n"},
          // Values lose their first and last character, quoted or not; Mode only its first.
          {{R"(<SerialPortConf Baudrate=9600 Databits="8" Mode=1 />)"},
           "0,60,8,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf Mode="2x" TagMetaData="256"/>)"}, "2,0,0,,0,,256,0,0|<CRC>\r\n"},
          {{R"(<SerialPortConf IsAutostart="1"/>)"},
           "0,0,0,,0,,0,1,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf IsAutostart="0"/>)"},
           "0,0,0,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          // Missing keys keep their former values; IsAutostart is reset by every read.
          {{R"(<SerialPortConf Mode="1" Baudrate="57600" Parity="Odd" TagMetaData="5" IsAutostart="1"/>)",
            R"(<SerialPortConf Databits="7"/>)"},
           "1,57600,7,Odd,0,,5,0,0|EPC,AntennaID,<CRC>\r\n"},
          {{R"(<SerialPortConf Baudrate="4800" Databits)"},
           "0,4800,0,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf Parity="ABCDEFGHIJKLMNOP" Flowcontrol="RTSCTS" Stopbits="2" TagMetaData="255"/>)"},
           "0,0,0,ABCDEFGHIJK,2,RTSCTS,255,0,0|"
           "EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<CRC>\r\n"},
          {{R"(<SerialPortConf TagMetaData="-1"/>)"},
           "0,0,0,,0,,-1,0,0|EPC,PC,AntennaID,RSSI,SeenCount,TimeStamp,Phase,ChannelIndex,<CRC>"
           "\r\n"},
          // A closing tag first gives an empty section: the header follows the held TagMetaData.
          {{R"(<SerialPortConf TagMetaData="128"/>)",
            "</SerialPortConf>\n<SerialPortConf Mode=\"1\" TagMetaData=\"1\"/>"},
           "0,0,0,,0,,128,0,0|ChannelIndex,<CRC>\r\n"},
          {{R"(<SerialPortConf Baudrate="1200" IsAutostart="1"/>)",
            R"(<Other SerialPortConf Mode="1" Baudrate="9600"/>)"},
           "0,1200,0,,0,,0,0,0|"},
          {{R"(<SerialPortConf Mode="1" Baudrate="9600" IsAutostart="1"/>)", ""},
           "1,9600,0,,0,,0,0,0|"},
          // A pad to the end of the line's first 255-character piece: the key after it is not read.
          {{R"(<SerialPortConf Baudrate="9600" Pad=")" + std::string(255 - 38, 'x') +
            R"(" Databits="7"/>)"},
           "0,9600,0,,0,,0,0,0|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
          {{R"(<SerialPortConf InventoryControl="S0,Never,TAG:5,1" Baudrate="38400"/>)"},
           "0,38400,0,,0,,0,0,5|EPC,PC,AntennaID,RSSI,SeenCount,<CRC>\r\n"},
      },
      readAndSummarize);
}

}  // namespace
}  // namespace tessera

#!/usr/bin/env python3
"""Writes the sample chip configuration files of each generation into this directory.

The pixel matrix is 256x256 bytes: a 4-bit trim (x*7 + y*3 mod 16) in bits 1-4 and the mask
bit 0 on every 1021st pixel; the tests compute the same pattern.
"""
import base64
import pathlib

HERE = pathlib.Path(__file__).resolve().parent


def matrix():
    return bytes(((i % 256 * 7 + i // 256 * 3) % 16) << 1 | (i % 1021 == 0) for i in range(65536))


def yaml_matrix(indent):
    data = matrix()
    rows = (" ".join(str(b) for b in data[r * 256:(r + 1) * 256]) for r in range(256))
    return "".join(indent + row + "\n" for row in rows)


def base64_matrix():
    text = base64.b64encode(matrix()).decode()
    return "\n".join(text[i:i + 76] for i in range(0, len(text), 76))


TPX1 = """# Timepix chip K09-W0107, equalised at 20 C
chip:
  - id: K09-W0107
    params:
      A: 0.0712
      B: -83.4
      W: 4.43
      T: 120.0
      MinTHL: 384.0
    dacs:
      Ikrum: 5
      Disc: 127
      Preamp: 255
      BuffAnalogA: 127
      BuffAnalogB: 127
      Hist: 0
      THLFine: 380
      THLCoarse: 7
      Vcas: 130
      FBK: 128
      GND: 80
      THS: 100
      BiasLVDS: 128
      RefLVDS: 128
    matrix: |
"""

TPX2_YAML = """# Timepix2 chip E07-W0025
chip:
  - id: E07-W0025
    params:
      A: 0.0265
      B: -41.7
      W: 3.62
      T: 0.0
      MinEnergyThreshold: 3.5
      ThresholdCoarseStep: 160
    dacs:
      PreampOn: 128
      PreamOff: 8
      LSOn: 100
      LSOff: 8
      CascPreamp: 128
      FBK: 128
      Threshold: 1100
      THLCoarse: 6
      THLFine: 200
      Ikrum: 10
      DiscPMOS: 128
      DiscNMOS: 128
      Disc: 64
      THS: 100
      GND: 120
      TpCoarse: 128
      TpFine: 256
      BiasSLSVS: 64
      VcmSLVS: 128
      BiasRes: 140
    matrix: |
"""

TPX2_XML = """<?xml version="1.0" encoding="utf-8"?>
<xml>
  <Info><Created>2026-11-02</Created><Operator>lab</Operator></Info>
  <Settings>
    <Bias>-150</Bias>
    <SensorRefreshEnabled>true</SensorRefreshEnabled>
  </Settings>
  <!-- Timepix2 chip E07-W0025, 300 um silicon -->
  <E07-W0025>
    <Polarity>true</Polarity>
    <SensorType>Si</SensorType>
    <SensorThickness>300</SensorThickness>
    <SensorPitch>55</SensorPitch>
    <PreampOn>128</PreampOn>
    <PreamOff>8</PreamOff>
    <LSOn>100</LSOn>
    <LSOff>8</LSOff>
    <CascPreamp>128</CascPreamp>
    <FBK>128</FBK>
    <Threshold>1100</Threshold>
    <THLCoarse>6</THLCoarse>
    <THLFine>200</THLFine>
    <Ikrum>10</Ikrum>
    <DiscPMOS>128</DiscPMOS>
    <DiscNMOS>128</DiscNMOS>
    <Disc>64</Disc>
    <THS>100</THS>
    <GND>120</GND>
    <TpCoarse>128</TpCoarse>
    <TpFine>256</TpFine>
    <BiasSLSVS>64</BiasSLSVS>
    <VcmSLVS>128</VcmSLVS>
    <BiasRes>140</BiasRes>
    <ThresholdCalibCoeffA>0.0265</ThresholdCalibCoeffA>
    <ThresholdCalibCoeffB>-41.7</ThresholdCalibCoeffB>
    <ThresholdCalibCoeffC>3.62</ThresholdCalibCoeffC>
    <ThresholdCalibCoeffT>0</ThresholdCalibCoeffT>
    <MinThreshold>3.5</MinThreshold>
    <ThresholdCoarseStep>160</ThresholdCoarseStep>
    <BinaryPixelCfg>
{matrix}
    </BinaryPixelCfg>
  </E07-W0025>
</xml>
"""

TPX3_XML = """<?xml version="1.0" encoding="utf-8"?>
<xml>
  <Layout><Chips>1</Chips></Layout>
  <Settings>
    <SensorRefreshEnabled>false</SensorRefreshEnabled>
  </Settings>
  <H05-W0318>
    <Polarity>false</Polarity>
    <SensorType>Si</SensorType>
    <SensorThickness>500</SensorThickness>
    <SensorPitch>55</SensorPitch>
    <PreampOn>128</PreampOn>
    <PreampOff>8</PreampOff>
    <NCas>128</NCas>
    <Ikrum>15</Ikrum>
    <Fbk>164</Fbk>
    <Threshold>4.25</Threshold>
    <THLFine>438</THLFine>
    <THLCoarse>4</THLCoarse>
    <DiscS1On>100</DiscS1On>
    <DiscS1Off>8</DiscS1Off>
    <DiscS2On>128</DiscS2On>
    <DiscS2Off>8</DiscS2Off>
    <PixelDac>128</PixelDac>
    <TpBuffIn>128</TpBuffIn>
    <TpBuffOut>128</TpBuffOut>
    <TpCoarse>128</TpCoarse>
    <TpFine>256</TpFine>
    <CpPll>128</CpPll>
    <PllVCntrl>128</PllVCntrl>
    <ThresholdCalibCoeffA>-23.9</ThresholdCalibCoeffA>
    <ThresholdCalibCoeffB>1180</ThresholdCalibCoeffB>
    <MinThreshold>120</MinThreshold>
    <twc>12</twc>
    <twd>4</twd>
    <BinaryPixelCfg><![CDATA[
{matrix}
]]></BinaryPixelCfg>
  </H05-W0318>
</xml>
"""

(HERE / "tpx1.yaml").write_text(TPX1 + yaml_matrix(" " * 6))
(HERE / "tpx2.yaml").write_text(TPX2_YAML + yaml_matrix(" " * 6))
(HERE / "tpx2.xml").write_text(TPX2_XML.replace("{matrix}", base64_matrix()))
(HERE / "tpx3.xml").write_text(TPX3_XML.replace("{matrix}", base64_matrix()))
